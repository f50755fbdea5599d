#pragma once

// The category an object belongs to, as packets are written for one category or all.

#include <cstdint>

#include <tessel_link/export.h>

namespace Serialization {

// Where an object names the category it belongs to; 0 means every category.
class TL_API CategoryHolder {
public:
    virtual ~CategoryHolder();

    // The category; 0 means every category.
    std::uint32_t GetCategory() const noexcept { return category_; }
    // Names the category.
    void SetCategory(std::uint32_t category) noexcept { category_ = category; }

private:
    std::uint32_t category_ = 0;
};

}  // namespace Serialization
