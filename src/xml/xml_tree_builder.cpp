#include "xml/xml_tree_builder.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace Xml {

XmlDocument::XmlDocument() noexcept = default;
XmlDocument::XmlDocument(XmlDocument&& other) noexcept
    : store_(std::move(other.store_)), root_(other.root_) {
    other.root_ = nullptr;
}
XmlDocument& XmlDocument::operator=(XmlDocument&& other) noexcept {
    store_ = std::move(other.store_);
    root_ = other.root_;
    other.root_ = nullptr;
    return *this;
}
XmlDocument::~XmlDocument() = default;

void XmlDocument::Reset() noexcept {
    store_.reset();
    root_ = nullptr;
}

std::size_t XmlDocument::MemoryUsage() const noexcept {
    return store_ ? sizeof(Detail::XmlStore) + store_->arena.Capacity() + store_->names.Capacity()
                  : 0;
}

namespace {

template <typename T>
inline void CopyItems(T* to, const T* from, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        to[i] = from[i];
    }
}

Detail::XmlStore& FreshStore(XmlDocument& document, std::unique_ptr<Detail::XmlStore>& slot) {
    document.Reset();
    slot = std::make_unique<Detail::XmlStore>();
    return *slot;
}

}  // namespace

XmlTreeBuilder::XmlTreeBuilder(XmlDocument& document)
    : document_(document), store_(FreshStore(document, document.store_)) {}

void XmlTreeBuilder::Open(const Detail::XmlName* name) {
    OpenTag(NewTag(name));
}

void XmlTreeBuilder::OpenTag(XmlTag* tag) {
    PushFrame(tag, ++nextMark_, static_cast<std::uint32_t>(attributes_.size()));
}

void XmlTreeBuilder::PushFrame(XmlTag* tag, std::uint32_t mark, std::uint32_t firstAttribute) {
    if (frames_.empty()) {
        document_.root_ = tag;
    } else {
        tag->parent_ = frames_.back().Tag;
        children_.push_back(tag);
        texts_.push_back(nullptr);
    }
    openMark_ = mark;
    frames_.push_back(Frame{tag, mark, static_cast<std::uint32_t>(children_.size()),
                            firstAttribute, static_cast<std::uint32_t>(texts_.size())});
    texts_.push_back(nullptr);
}

void XmlTreeBuilder::EndEmptyTag(XmlTag* tag) {
    // What Close makes of a tag with attributes and nothing else, without a frame.
    const std::size_t count = attributes_.size() - begunAttributes_;
    tag->parent_ = frames_.back().Tag;
    if (count == 0) {
        tag->content_ = 0;
    } else {
        const std::size_t bytes = sizeof(Detail::XmlContent) +
                                  count * sizeof(Detail::XmlAttributeSlot) +
                                  sizeof(Detail::XmlText*);
        auto* content = static_cast<Detail::XmlContent*>(store_.arena.Allocate(bytes));
        content->ChildCount = 0;
        content->AttributeCount = static_cast<std::uint32_t>(count);
        auto* slots = const_cast<Detail::XmlAttributeSlot*>(content->Attributes());
        const Detail::XmlAttributeSlot* first = attributes_.data() + begunAttributes_;
        if (count > 1) {
            PutSorted(slots, first, count);
        } else {
            slots[0] = first[0];
        }
        const_cast<const Detail::XmlText**>(content->Texts())[0] = nullptr;
        tag->content_ = reinterpret_cast<std::uintptr_t>(content);
    }
    children_.push_back(tag);
    texts_.push_back(nullptr);
    attributes_.resize(begunAttributes_);
    openMark_ = frames_.back().Mark;
}

bool XmlTreeBuilder::AddAttribute(const Detail::XmlName* name, std::u16string_view value) {
    return AddAttributeText(name, store_.NewText(value));
}

void XmlTreeBuilder::PutSorted(Detail::XmlAttributeSlot* slots,
                               const Detail::XmlAttributeSlot* first, std::size_t count) {
    // The last tag's order is tried first. Names are interned and a tag has each at most
    // once, so when every place gets the name it had last time, the order is right.
    if (count == lastOrder_.size()) {
        const std::uint32_t* order = lastOrder_.data();
        const Detail::XmlName* const* sorted = lastSorted_.data();
        bool same = true;
        for (std::size_t i = 0; i < count; ++i) {
            slots[i] = first[order[i]];
            same &= slots[i].Name == sorted[i];
        }
        if (same) {
            return;
        }
    }
    lastOrder_.resize(count);
    lastSorted_.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        lastOrder_[i] = static_cast<std::uint32_t>(i);
    }
    std::sort(lastOrder_.begin(), lastOrder_.end(), [first](std::uint32_t a, std::uint32_t b) {
        return first[a].Name->View() < first[b].Name->View();
    });
    for (std::size_t i = 0; i < count; ++i) {
        slots[i] = first[lastOrder_[i]];
        lastSorted_[i] = slots[i].Name;
    }
}

void XmlTreeBuilder::Close() {
    const Frame frame = frames_.back();
    frames_.pop_back();
    openMark_ = frames_.empty() ? 0 : frames_.back().Mark;
    const std::size_t childCount = children_.size() - frame.FirstChild;
    const std::size_t attributeCount = attributes_.size() - frame.FirstAttribute;
    const std::size_t textCount = texts_.size() - frame.FirstText;  // childCount + 1

    if (childCount == 0 && attributeCount == 0) {
        const Detail::XmlText* text = texts_.back();
        frame.Tag->content_ = text != nullptr ? reinterpret_cast<std::uintptr_t>(text) | 1 : 0;
    } else {
        const Detail::XmlAttributeSlot* first = attributes_.data() + frame.FirstAttribute;
        const std::size_t bytes = sizeof(Detail::XmlContent) + childCount * sizeof(XmlTag*) +
                                  attributeCount * sizeof(Detail::XmlAttributeSlot) +
                                  textCount * sizeof(Detail::XmlText*);
        auto* content = static_cast<Detail::XmlContent*>(store_.arena.Allocate(bytes));
        content->ChildCount = static_cast<std::uint32_t>(childCount);
        content->AttributeCount = static_cast<std::uint32_t>(attributeCount);
        // Element-wise copies: the counts are small, and a library call costs more.
        CopyItems(const_cast<const XmlTag**>(content->Children()),
                  children_.data() + frame.FirstChild, childCount);
        auto* slots = const_cast<Detail::XmlAttributeSlot*>(content->Attributes());
        if (attributeCount > 1) {
            // Sorted by name on the way into the tree.
            PutSorted(slots, first, attributeCount);
        } else {
            CopyItems(slots, first, attributeCount);
        }
        CopyItems(const_cast<const Detail::XmlText**>(content->Texts()),
                  texts_.data() + frame.FirstText, textCount);
        frame.Tag->content_ = reinterpret_cast<std::uintptr_t>(content);
    }
    children_.resize(frame.FirstChild);
    attributes_.resize(frame.FirstAttribute);
    texts_.resize(frame.FirstText);
}

}  // namespace Xml
