// LMDB on the memory file system, without syncing, mapped for writing: as fast as it goes. A
// thousand writes make a transaction; a reader takes a fresh one every thousand look-ups.
#include <lmdb.h>

#include <stdexcept>
#include <string>

#include "bench/Tables.h"

namespace Bench {
namespace {

void done(int status) {
  if (status != MDB_SUCCESS) throw std::runtime_error(std::string("lmdb: ") + mdb_strerror(status));
}

template <class T>
MDB_val valueOf(const T& object) {
  return {sizeof object, const_cast<T*>(&object)};
}

class LmdbMap {
 public:
  static constexpr auto name = "Lmdb";

  explicit LmdbMap(size_t routes) {
    done(mdb_env_create(&env_));
    done(mdb_env_set_mapsize(env_, routes * 400 + (size_t{16} << 20)));
    done(mdb_env_open(env_, directory_.path().c_str(),
                      MDB_NOSYNC | MDB_NOMETASYNC | MDB_WRITEMAP | MDB_NORDAHEAD, 0640));
    begin(0);
    done(mdb_dbi_open(transaction_, nullptr, 0, &database_));
  }
  ~LmdbMap() {
    end();
    mdb_env_close(env_);
  }
  LmdbMap(const LmdbMap&) = delete;
  LmdbMap& operator=(const LmdbMap&) = delete;

  void set(const IpDestination& route) {
    const MDB_val key = valueOf(route.destinationPrefix);
    const MDB_val value = valueOf(route);
    use(0);
    done(mdb_put(transaction_, database_, const_cast<MDB_val*>(&key), const_cast<MDB_val*>(&value),
                 0));
  }
  bool find(const IpGenPrefix& prefix, IpDestination& route) {
    MDB_val key = valueOf(prefix);
    MDB_val value;
    use(MDB_RDONLY);
    const int status = mdb_get(transaction_, database_, &key, &value);
    if (status == MDB_NOTFOUND) return false;
    done(status);
    std::memcpy(&route, value.mv_data, sizeof route);
    return true;
  }
  uint64_t sum() {
    end();
    begin(MDB_RDONLY);
    MDB_cursor* cursor = nullptr;
    done(mdb_cursor_open(transaction_, database_, &cursor));
    uint64_t sum = 0;
    MDB_val key;
    MDB_val value;
    while (mdb_cursor_get(cursor, &key, &value, MDB_NEXT) == MDB_SUCCESS) {
      IpDestination route;
      std::memcpy(&route, value.mv_data, sizeof route);
      sum += route.destinationId;
    }
    mdb_cursor_close(cursor);
    return sum;
  }
  uint64_t size() {
    end();
    begin(MDB_RDONLY);
    MDB_stat status;
    done(mdb_stat(transaction_, database_, &status));
    return status.ms_entries;
  }

 private:
  void begin(unsigned flags) {
    done(mdb_txn_begin(env_, nullptr, flags, &transaction_));
    flags_ = flags;
    calls_ = 0;
  }
  void end() {
    if (transaction_) done(mdb_txn_commit(transaction_));
    transaction_ = nullptr;
  }
  void use(unsigned flags) {
    if (flags == flags_ && ++calls_ < 1000 && transaction_) return;
    end();
    begin(flags);
  }

  Directory directory_;
  MDB_env* env_ = nullptr;
  MDB_txn* transaction_ = nullptr;
  MDB_dbi database_ = 0;
  unsigned flags_ = 0;
  unsigned calls_ = 0;
};

const MapSubjects<LmdbMap> subjects(usualSizes());

}  // namespace
}  // namespace Bench
