#pragma once

// The callbacks through which units, properties and traits are iterated.

#include <type_traits>
#include <utility>

namespace Por {

// The callback of all iteration over units, properties and traits. Iteration is internal:
// the container calls Process for each item in order and stops as soon as it returns true.
template <class Item>
class ItemProcessor {
public:
    virtual ~ItemProcessor() = default;
    virtual bool Process(Item& item) = 0;  // takes one item; true stops the walk
};

// An ItemProcessor made from a callable. A callable that returns void never stops the walk.
template <class Item, class Function>
class FunctionProcessor final : public ItemProcessor<Item> {
public:
    // Wraps `function`.
    explicit FunctionProcessor(Function function) : function_(std::move(function)) {}

    bool Process(Item& item) override {  // calls the function; true stops the walk
        if constexpr (std::is_void_v<std::invoke_result_t<Function&, Item&>>) {
            function_(item);
            return false;
        } else {
            return static_cast<bool>(function_(item));
        }
    }

private:
    Function function_;
};

// A FunctionProcessor of `function`.
template <class Item, class Function>
FunctionProcessor<Item, Function> MakeProcessor(Function function) {
    return FunctionProcessor<Item, Function>(std::move(function));
}

// A position in a composite's properties, shared by whoever iterates with it.
template <class Item>
class IteratorState {
public:
    virtual ~IteratorState() = default;
    // The property at the position; only while Valid().
    virtual Item& Current() = 0;
    // Moves one on; does nothing once past the end.
    virtual void Advance() = 0;
    virtual bool Valid() const = 0;  // false once past the end
};

}  // namespace Por
