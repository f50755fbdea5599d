#pragma once

// Builds the immutable tree of a document from events: open a tag, add attributes, set the
// text that stands at the current place, close the tag. The text reader and the binary
// reader both end here.

#include <cstdint>
#include <new>
#include <string_view>
#include <vector>

#include <tessel_link/xml/xml_tag.h>

#include "xml/xml_store.h"

namespace Xml {

class XmlTreeBuilder {
public:
    // Discards the tree that `document` holds and builds the new one into it.
    explicit XmlTreeBuilder(XmlDocument& document);
    XmlTreeBuilder(const XmlTreeBuilder&) = delete;
    XmlTreeBuilder& operator=(const XmlTreeBuilder&) = delete;
    // Closes whatever is still open, so that a partial tree is whole.
    ~XmlTreeBuilder() { CloseAll(); }

    const Detail::XmlName* Intern(std::string_view name) { return store_.names.Intern(name); }
    Detail::NameTable& Names() noexcept { return store_.names; }
    const Detail::XmlName* OpenTagName() const noexcept { return frames_.back().Tag->name_; }

    // Opens a tag as the last child of the open tag, which gets a new empty text behind it;
    // with no tag open, the new tag replaces the root.
    void Open(const Detail::XmlName* name);
    // A tag in two steps, for readers that learn only after its start whether it is a leaf:
    // NewTag makes it; then either AddLeaf adds it with its text as a closed child of the open
    // tag, or OpenTag opens it as Open does.
    XmlTag* NewTag(const Detail::XmlName* name) {
        auto* tag = new (store_.arena.Allocate(sizeof(XmlTag))) XmlTag();
        tag->name_ = name;
        return tag;
    }
    void AddLeaf(XmlTag* tag, const Detail::XmlText* text) {
        tag->parent_ = frames_.back().Tag;
        tag->content_ = text != nullptr ? reinterpret_cast<std::uintptr_t>(text) | 1 : 0;
        children_.push_back(tag);
        texts_.push_back(nullptr);
    }
    void OpenTag(XmlTag* tag);
    // A tag in two steps for readers that learn only after its attributes whether it is
    // empty: BeginTag makes it and takes the attributes that follow; then either
    // EndEmptyTag adds it with them as a closed child of the open tag, or OpenBegunTag opens
    // it with them as Open does.
    XmlTag* BeginTag(const Detail::XmlName* name) {
        XmlTag* tag = NewTag(name);
        openMark_ = ++nextMark_;
        begunAttributes_ = static_cast<std::uint32_t>(attributes_.size());
        return tag;
    }
    void EndEmptyTag(XmlTag* tag);
    void OpenBegunTag(XmlTag* tag) { PushFrame(tag, openMark_, begunAttributes_); }

    // Adds an attribute to the open tag; false, with nothing changed, when the tag already
    // has one of that name.
    bool AddAttribute(const Detail::XmlName* name, std::u16string_view value);
    // Replaces the last text entry of the open tag.
    void SetText(std::u16string_view text) { texts_.back() = store_.NewText(text); }

    // For readers that write texts straight into the arena: the same operations on texts
    // that already live there.
    Detail::Arena& Arena() noexcept { return store_.arena; }
    void SetTextEntry(const Detail::XmlText* text) { texts_.back() = text; }
    // Whether the open tag has an attribute of that (interned) name already.
    bool HasAttribute(const Detail::XmlName* name) const noexcept {
        return name->Mark == openMark_;
    }
    bool AddAttributeText(const Detail::XmlName* name, const Detail::XmlText* value) {
        // Names are interned, so the mark on the name tells whether this tag has it already.
        auto* entry = const_cast<Detail::XmlName*>(name);
        if (entry->Mark == openMark_) {
            return false;
        }
        entry->Mark = openMark_;
        attributes_.push_back({name, value});
        return true;
    }
    void Close();
    void CloseAll() {
        while (!frames_.empty()) {
            Close();
        }
    }

    std::size_t Depth() const noexcept { return frames_.size(); }
    std::string_view OpenName() const noexcept { return frames_.back().Tag->Name(); }

private:
    void PushFrame(XmlTag* tag, std::uint32_t mark, std::uint32_t firstAttribute);
    // Writes the `count` attributes at `first` to `slots` in the order of their names.
    void PutSorted(Detail::XmlAttributeSlot* slots, const Detail::XmlAttributeSlot* first,
                   std::size_t count);
    struct Frame {
        XmlTag* Tag;
        std::uint32_t Mark;
        std::uint32_t FirstChild;
        std::uint32_t FirstAttribute;
        std::uint32_t FirstText;
    };

    XmlDocument& document_;
    Detail::XmlStore& store_;
    std::vector<Frame> frames_;
    // The pending content of all open tags, innermost last.
    std::vector<const XmlTag*> children_;
    std::vector<Detail::XmlAttributeSlot> attributes_;
    // The order that sorting gave the attributes of the last tag (index i is the attribute
    // that went to place i) and their names in that order: tags of one kind mostly repeat
    // both.
    std::vector<std::uint32_t> lastOrder_;
    std::vector<const Detail::XmlName*> lastSorted_;
    std::vector<const Detail::XmlText*> texts_;
    std::uint32_t nextMark_ = 0;
    std::uint32_t openMark_ = 0;  // the mark of the tag whose attributes are read
    std::uint32_t begunAttributes_ = 0;  // where the attributes of a begun tag start
};

}  // namespace Xml
