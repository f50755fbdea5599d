#pragma once

// Not API: how the document tree of the XML reader lies in memory, for the inline accessors
// of Xml::XmlTag. Hosts read the tree through XmlTag, XmlChildren, XmlAttributes and
// XmlTexts.

#include <cstdint>
#include <string_view>

namespace Xml {
class XmlTag;
}  // namespace Xml

namespace Xml::Detail {

// Storage of the tree. Everything of a document lives in one arena that the document owns;
// a tag is three words and its strings are shared or packed behind it.

// A narrow name, interned per document: equal names are one object.
struct XmlName {
    std::uint32_t Size;
    std::uint32_t Mark;  // used while the tree is built
    std::string_view View() const noexcept {
        return {reinterpret_cast<const char*>(this + 1), Size};
    }
};

// A wide text: its length in UTF-16 units, then the units.
struct XmlText {
    std::uint32_t Size;
    std::u16string_view View() const noexcept {
        return {reinterpret_cast<const char16_t*>(this + 1), Size};
    }
};

inline std::u16string_view TextView(const XmlText* text) noexcept {
    return text != nullptr ? text->View() : std::u16string_view();
}

// One attribute as the tree stores it: its interned name and its text.
struct XmlAttributeSlot {
    const XmlName* Name;
    const XmlText* Value;  // null for an empty value
};

// The content of a tag that has children or attributes: the counts, then ChildCount child
// pointers, AttributeCount attributes sorted by name, and ChildCount + 1 texts.
struct XmlContent {
    std::uint32_t ChildCount;
    std::uint32_t AttributeCount;
    const XmlTag* const* Children() const noexcept {
        return reinterpret_cast<const XmlTag* const*>(this + 1);
    }
    const XmlAttributeSlot* Attributes() const noexcept {
        return reinterpret_cast<const XmlAttributeSlot*>(Children() + ChildCount);
    }
    const XmlText* const* Texts() const noexcept {
        return reinterpret_cast<const XmlText* const*>(Attributes() + AttributeCount);
    }
};

struct XmlStore;

}  // namespace Xml::Detail
