// Access to memory that other processes read and write at the same time.
//
// Every shared word is read with look() and written with put(). Stores stay in program order: the
// protocols, and what is found after a writer was killed, rest on that. Loads stay in program order
// too, so that a sequence read after the words it guards is not read before them. Both are plain
// moves on the usual processors.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Shoal {

template <class T>
T look(const T& word) {
  static_assert(sizeof(T) == 4 || sizeof(T) == 8);
  return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}

template <class T>
void put(T& word, std::type_identity_t<T> value) {
  static_assert(sizeof(T) == 4 || sizeof(T) == 8);
  __atomic_store_n(&word, value, __ATOMIC_RELEASE);
}

// The unit in which entries and keys are moved. Areas of them start at a multiple of 8 and are
// padded with zeros to one; how a process cuts them into words is its own affair.
using Word = std::conditional_t<sizeof(void*) == 8, uint64_t, uint32_t>;

// Up to a word of bytes, filled up with zeros.
inline Word wordAt(const std::byte* bytes, size_t size) {
  Word word = 0;
  std::memcpy(&word, bytes, size);
  return word;
}

inline void copyOut(std::byte* to, const std::byte* shared, size_t size) {
  const Word* words = reinterpret_cast<const Word*>(shared);
  for (; size >= sizeof(Word); to += sizeof(Word), size -= sizeof(Word)) {
    const Word word = look(*words++);
    std::memcpy(to, &word, sizeof word);
  }
  if (size != 0) {
    const Word word = look(*words);
    std::memcpy(to, &word, size);
  }
}

// Whether the shared bytes are these.
inline bool isSame(const std::byte* shared, const std::byte* bytes, size_t size) {
  const Word* words = reinterpret_cast<const Word*>(shared);
  for (; size >= sizeof(Word); bytes += sizeof(Word), size -= sizeof(Word)) {
    if (look(*words++) != wordAt(bytes, sizeof(Word))) return false;
  }
  if (size == 0) return true;
  const Word last = look(*words);
  return wordAt(reinterpret_cast<const std::byte*>(&last), size) == wordAt(bytes, size);
}

inline void copyIn(std::byte* shared, const std::byte* from, size_t size) {
  Word* words = reinterpret_cast<Word*>(shared);
  for (; size >= sizeof(Word); from += sizeof(Word), size -= sizeof(Word)) {
    put(*words++, wordAt(from, sizeof(Word)));
  }
  if (size != 0) put(*words, wordAt(from, size));
}

}  // namespace Shoal
