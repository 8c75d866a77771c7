// SPDX-License-Identifier: MIT
// Words shared between threads.
//
// The exported ints stay plain ints in the C headers, so that a C host can read them; inside the
// library every access that another thread may meet goes through these few calls.
#pragma once

#include <atomic>

namespace kelo
{

template <typename Word> [[gnu::always_inline]] inline Word word_get(Word& word)
{
    return __atomic_load_n(&word, __ATOMIC_SEQ_CST);
}

template <typename Word> [[gnu::always_inline]] inline void word_set(Word& word, Word value)
{
    __atomic_store_n(&word, value, __ATOMIC_SEQ_CST);
}

// Takes a lock word: true for the one caller that found it 0.
inline bool word_take(int& word)
{
    int free = 0;
    return std::atomic_ref<int>(word).compare_exchange_strong(free, 1);
}

// Adds and gives the new value.
inline int word_add(int& word, int summand)
{
    return std::atomic_ref<int>(word).fetch_add(summand) + summand;
}

// Takes one off; what lies below 0 then is 0.
inline void word_count_down(int& word)
{
    const std::atomic_ref<int> count(word);
    int before = count.load();
    while (!count.compare_exchange_weak(before, before > 0 ? before - 1 : 0)) {
    }
}

} // namespace kelo
