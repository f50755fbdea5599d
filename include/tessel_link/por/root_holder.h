#pragma once

// Shared pointers into a tree that keep the whole tree alive.

#include <memory>
#include <utility>

namespace Por::Util {

// The deleter of a shared pointer to a unit inside a tree. Deleting does nothing: the branch
// belongs to the tree. What the deleter is for is the shared pointer to the tree's root that
// it holds, which keeps the whole tree alive while the branch pointer lives.
template <class Root>
class RootHolder {
public:
    // Holds `root`.
    explicit RootHolder(std::shared_ptr<Root> root) noexcept : root_(std::move(root)) {}

    // Deletes nothing.
    template <class Branch>
    void operator()(Branch*) const noexcept {}

    // The root it keeps alive.
    const std::shared_ptr<Root>& GetRoot() const noexcept { return root_; }

private:
    std::shared_ptr<Root> root_;
};

// A shared pointer to `branch` that keeps `root` alive.
template <class Branch, class Root>
std::shared_ptr<Branch> MakeSharedBranch(std::shared_ptr<Root> root, Branch* branch) {
    return std::shared_ptr<Branch>(branch, RootHolder<Root>(std::move(root)));
}

}  // namespace Por::Util
