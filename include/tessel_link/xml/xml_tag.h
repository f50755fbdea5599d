#pragma once

// The document tree of the XML reader: tags, their children, attributes and text pieces.

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <string_view>

#include <tessel_link/export.h>
#include <tessel_link/impl/xml/tree_storage.h>

namespace File {
class i_file;
}

namespace Xml {

class XmlTag;

// The child elements of a tag in document order. Iterators are plain pointers to
// `const XmlTag*`, stable for the life of the document.
class XmlChildren {
public:
    using iterator = const XmlTag* const*;  // a pointer into the tag's child array
    // `count` children from `first`.
    XmlChildren(iterator first, std::size_t count) noexcept : first_(first), count_(count) {}
    iterator begin() const noexcept { return first_; }  // the first child
    iterator end() const noexcept { return first_ + count_; }  // past the last child
    std::size_t size() const noexcept { return count_; }  // the number of children
    bool empty() const noexcept { return count_ == 0; }  // no children
    const XmlTag* operator[](std::size_t i) const noexcept { return first_[i]; }  // child `i`

private:
    iterator first_;
    std::size_t count_;
};

// The text pieces of a tag: always one more than its children. Entry 0 stands before the
// first child, entry i between children i-1 and i, the last behind the last child.
class XmlTexts {
public:
    // Steps through the text pieces.
    class iterator {
    public:
        // The standard iterator types.
        using iterator_category = std::forward_iterator_tag;
        using value_type = std::u16string_view;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = std::u16string_view;
        iterator() = default;
        // Made by XmlTexts.
        iterator(const Detail::XmlText* const* many, const Detail::XmlText* one, std::size_t index)
            : many_(many), one_(one), index_(index) {}
        std::u16string_view operator*() const {  // the text piece
            return Detail::TextView(many_ != nullptr ? many_[index_] : one_);
        }
        iterator& operator++() {  // to the next piece
            ++index_;
            return *this;
        }
        // To the next piece, returning the iterator as it was.
        iterator operator++(int) {
            iterator old = *this;
            ++index_;
            return old;
        }
        bool operator==(const iterator& o) const { return index_ == o.index_; }  // same piece

    private:
        const Detail::XmlText* const* many_ = nullptr;
        const Detail::XmlText* one_ = nullptr;
        std::size_t index_ = 0;
    };

    // Either an array of `count` texts, or (many == null) the single text `one`.
    XmlTexts(const Detail::XmlText* const* many, const Detail::XmlText* one,
             std::size_t count) noexcept
        : many_(many), one_(one), count_(count) {}
    std::size_t size() const noexcept { return count_; }  // the number of pieces: children + 1
    std::u16string_view operator[](std::size_t i) const noexcept {  // piece `i`
        return Detail::TextView(many_ != nullptr ? many_[i] : one_);
    }
    // The piece before the first child.
    std::u16string_view front() const noexcept { return (*this)[0]; }
    // The piece behind the last child.
    std::u16string_view back() const noexcept { return (*this)[count_ - 1]; }
    iterator begin() const { return iterator(many_, one_, 0); }  // the first piece
    iterator end() const { return iterator(many_, one_, count_); }  // past the last piece

private:
    const Detail::XmlText* const* many_;
    const Detail::XmlText* one_;
    std::size_t count_;
};

// One attribute as the iterator shows it: the name in UTF-8, the value in UTF-16.
struct XmlAttribute {
    std::string_view Name;  // in UTF-8
    std::u16string_view Value;  // in UTF-16
};

// The attributes of a tag, unique by name and sorted by name as bytes.
class XmlAttributes {
public:
    // Steps through the attributes in name order.
    class iterator {
    public:
        // The standard iterator types.
        using iterator_category = std::forward_iterator_tag;
        using value_type = XmlAttribute;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = XmlAttribute;
        iterator() = default;
        // Made by XmlAttributes.
        explicit iterator(const Detail::XmlAttributeSlot* slot) : slot_(slot) {}
        XmlAttribute operator*() const {  // the attribute
            return {slot_->Name->View(), Detail::TextView(slot_->Value)};
        }
        iterator& operator++() {  // to the next attribute
            ++slot_;
            return *this;
        }
        // To the next attribute, returning the iterator as it was.
        iterator operator++(int) {
            iterator old = *this;
            ++slot_;
            return old;
        }
        bool operator==(const iterator& o) const { return slot_ == o.slot_; }  // same attribute

    private:
        const Detail::XmlAttributeSlot* slot_ = nullptr;
    };

    // Made by a tag: `count` attributes from `first`.
    XmlAttributes(const Detail::XmlAttributeSlot* first, std::size_t count) noexcept
        : first_(first), count_(count) {}
    std::size_t size() const noexcept { return count_; }  // the number of attributes
    bool empty() const noexcept { return count_ == 0; }  // no attributes
    iterator begin() const { return iterator(first_); }  // the first attribute
    iterator end() const { return iterator(first_ + count_); }  // past the last attribute

    // The value of the attribute `name`, or nothing when the tag has none of that name.
    std::optional<std::u16string_view> Find(std::string_view name) const noexcept {
        for (std::size_t i = 0; i < count_; ++i) {
            if (first_[i].Name->View() == name) {
                return Detail::TextView(first_[i].Value);
            }
        }
        return std::nullopt;
    }
    // Whether the tag has the attribute `name`.
    bool Contains(std::string_view name) const noexcept { return Find(name).has_value(); }

private:
    const Detail::XmlAttributeSlot* first_;
    std::size_t count_;
};

// One element of a document tree. Tags are made by reading a document and live as long as
// the document; they are never changed afterwards.
class XmlTag {
public:
    std::string_view Name() const noexcept { return name_->View(); }  // the tag's name in UTF-8
    // Null at the root.
    const XmlTag* Parent() const noexcept { return parent_; }

    XmlChildren Children() const noexcept {  // the child elements in document order
        const Detail::XmlContent* c = Content();
        return c != nullptr ? XmlChildren(c->Children(), c->ChildCount) : XmlChildren(nullptr, 0);
    }
    XmlAttributes Attributes() const noexcept {  // the attributes, sorted by name
        const Detail::XmlContent* c = Content();
        return c != nullptr ? XmlAttributes(c->Attributes(), c->AttributeCount)
                            : XmlAttributes(nullptr, 0);
    }
    // The text pieces around the children.
    XmlTexts Text() const noexcept {
        const Detail::XmlContent* c = Content();
        if (c != nullptr) {
            return XmlTexts(c->Texts(), nullptr, c->ChildCount + std::size_t{1});
        }
        return XmlTexts(nullptr, SingleText(), 1);
    }

private:
    friend class XmlTreeBuilder;

    // The content word: 0 for a tag with nothing but an empty text; a text pointer with the
    // low bit set for a tag with nothing but that text; otherwise an XmlContent pointer.
    const Detail::XmlContent* Content() const noexcept {
        return (content_ & 1) == 0 ? reinterpret_cast<const Detail::XmlContent*>(content_)
                                   : nullptr;
    }
    const Detail::XmlText* SingleText() const noexcept {
        return reinterpret_cast<const Detail::XmlText*>(content_ & ~std::uintptr_t{1});
    }

    const Detail::XmlName* name_ = nullptr;
    const XmlTag* parent_ = nullptr;
    std::uintptr_t content_ = 0;
};

// A document: the tree of one read, with the memory that holds it. Empty before a
// successful read; a failed read may leave the part it had built.
class TL_API XmlDocument {
public:
    XmlDocument() noexcept;
    XmlDocument(XmlDocument&& other) noexcept;  // takes over the tree
    // Takes over the tree; the old one is freed.
    XmlDocument& operator=(XmlDocument&& other) noexcept;
    ~XmlDocument();

    // The root element, or null before a successful read.
    const XmlTag* Root() const noexcept { return root_; }
    // True once a read succeeded.
    explicit operator bool() const noexcept { return root_ != nullptr; }
    // Frees the tree.
    void Reset() noexcept;
    // Bytes that the tree holds, for measurement.
    std::size_t MemoryUsage() const noexcept;

private:
    friend class XmlTreeBuilder;
    std::unique_ptr<Detail::XmlStore> store_;
    const XmlTag* root_ = nullptr;
};

// The deepest nesting of elements that a document may have. Deeper input is refused, so that
// hostile input cannot exhaust the stack of code that walks the tree.
inline constexpr std::uint32_t kMaxXmlDepth = 1024;

// Reads a whole document from `file`: XML text in UTF-8, or either binary form (the first
// bytes decide). Any tree the document held is discarded first. On failure the result is
// false and `line`/`column` tell where reading stopped (both from 1); nothing else of the
// failure is reported. `file` is read from its current position, first in a read of four
// bytes and then in blocks.
TL_API bool ReadDocument(XmlDocument& document, File::i_file& file, std::uint32_t& line,
                         std::uint32_t& column);

}  // namespace Xml
