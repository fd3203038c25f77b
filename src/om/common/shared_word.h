#ifndef SRC_OM_COMMON_SHARED_WORD_H_
#define SRC_OM_COMMON_SHARED_WORD_H_

// Words of shared regions, which the engine's cores read and write at the same time. Each access is one read
// or write of the whole word; they happen in the order in which they stand, for the engine too.
namespace qdt {

template <typename T>
T ReadShared(const T &word) {
  return __atomic_load_n(&word, __ATOMIC_SEQ_CST);
}

template <typename T>
void WriteShared(T &word, T value) {
  __atomic_store_n(&word, value, __ATOMIC_SEQ_CST);
}

}  // namespace qdt

#endif  // SRC_OM_COMMON_SHARED_WORD_H_
