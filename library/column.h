// Elements at equal distances in memory: a column of a table, or an array.
#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace offlinetz {

template <typename T>
struct Column {
    T* first;
    ptrdiff_t stride;  // In bytes.

    // Elements need not be aligned.
    auto* At(size_t i) const {
        using Byte = std::conditional_t<std::is_const_v<T>, const char, char>;
        return reinterpret_cast<Byte*>(first) + static_cast<ptrdiff_t>(i) * stride;
    }
    std::remove_const_t<T> ValueAt(size_t i) const {
        std::remove_const_t<T> value;
        std::memcpy(&value, At(i), sizeof value);
        return value;
    }
};

}  // namespace offlinetz
