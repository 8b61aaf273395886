#pragma once

namespace oru {

// Single values that one thread writes and others may read without a lock, in records whose fields are plain.

template <class T>
[[nodiscard]] T loadRelaxed(const T& value) {
    T result;
    __atomic_load(&value, &result, __ATOMIC_RELAXED);
    return result;
}

template <class T>
void storeRelaxed(T& target, T value) {
    __atomic_store(&target, &value, __ATOMIC_RELAXED);
}

}  // namespace oru
