// Access to memory that other processes read and write at the same time.
//
// Every shared word is read with look() and written with put(). Stores stay in program order: the
// protocols, and what is found after a writer was killed, rest on that. Loads stay in program order
// too, so that a sequence read after the words it guards is not read before them. Both are plain
// moves on the usual processors.
#pragma once

#include <atomic>
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

// The unit in which keys are compared, and entries and keys moved for the most part. Areas of them
// start at a multiple of 8 and are padded with zeros to one; how a process cuts them into words is
// its own affair.
using Word = std::conditional_t<sizeof(void*) == 8, uint64_t, uint32_t>;

// Where the compiler knows the size, the words of an entry are moved one by one without a loop, and
// a copy that is only passed on stays in registers: written to the stack as words and read again as
// something wider it would have to wait there.

// Up to a word of bytes, filled up with zeros.
inline Word wordAt(const std::byte* bytes, size_t size = sizeof(Word)) {
  Word word = 0;
  std::memcpy(&word, bytes, size);
  return word;
}

// What an entry is moved by: words, or where these are small, vectors of sixteen bytes. Such a move
// may be seen half done, as an entry may between two words. Their order is that of look() and
// put(): these processors keep it for vectors, too, and the fences have the compiler keep it.
#if defined(__i386__) && defined(__SSE2__)
using Block [[gnu::vector_size(16), gnu::aligned(4), gnu::may_alias]] = char;

inline Block lookAtBlock(const std::byte* shared) {
  const Block block = *reinterpret_cast<const volatile Block*>(shared);
  std::atomic_signal_fence(std::memory_order_acquire);
  return block;
}
inline void putBlock(std::byte* shared, Block block) {
  std::atomic_signal_fence(std::memory_order_release);
  *reinterpret_cast<volatile Block*>(shared) = block;
}
#else
using Block = Word;

inline Block lookAtBlock(const std::byte* shared) {
  return look(*reinterpret_cast<const Block*>(shared));
}
inline void putBlock(std::byte* shared, Block block) {
  put(*reinterpret_cast<Block*>(shared), block);
}
#endif

inline void copyOut(std::byte* to, const std::byte* shared, size_t size) {
#pragma GCC unroll 16
  for (; size >= sizeof(Block); size -= sizeof(Block)) {
    const Block block = lookAtBlock(shared);
    std::memcpy(to, &block, sizeof block);
    to += sizeof block;
    shared += sizeof block;
  }
  const Word* words = reinterpret_cast<const Word*>(shared);
#pragma GCC unroll 4
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
    if (look(*words++) != wordAt(bytes)) return false;
  }
  if (size == 0) return true;
  const Word last = look(*words);
  return wordAt(reinterpret_cast<const std::byte*>(&last), size) == wordAt(bytes, size);
}

inline void copyIn(std::byte* shared, const std::byte* from, size_t size) {
#pragma GCC unroll 16
  for (; size >= sizeof(Block); size -= sizeof(Block)) {
    Block block;
    std::memcpy(&block, from, sizeof block);
    putBlock(shared, block);
    from += sizeof block;
    shared += sizeof block;
  }
  Word* words = reinterpret_cast<Word*>(shared);
#pragma GCC unroll 4
  for (; size >= sizeof(Word); from += sizeof(Word), size -= sizeof(Word)) {
    put(*words++, wordAt(from));
  }
  if (size != 0) put(*words, wordAt(from, size));
}

}  // namespace Shoal
