// What lies in wait at the paths of a table: links, pipes, sockets, other people's files, files and
// directories that others may write. Each part of a path is exchanged for each of them, and every
// call refuses it by name and leaves everything as it was: nothing followed, made, written or
// removed.
#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "platform/Guard/Exception.h"
#include "platform/Shoal/SharedTable.h"
#include "torture/Entries.h"
#include "torture/SharedTally.h"
#include "torture/Watch.h"

namespace Torture {
namespace {

namespace fs = std::filesystem;
using Shoal::AttachException;

constexpr uid_t stranger = 4242;
constexpr uid_t nobody = 65534;
constexpr std::chrono::seconds childLimit{900};
const std::string tableName = "a/b/table";

// --- The tree, and all that can be seen of it ----------------------------------------------------

// Every file below a directory by its path: what lstat says, and its bytes or where it leads.
using Picture =
    std::map<std::string,
             std::tuple<mode_t, uid_t, gid_t, nlink_t, off_t, ino_t, time_t, long, std::string>>;
Picture pictureOf(const fs::path& ground) {
  Picture picture;
  for (const auto& at : fs::recursive_directory_iterator(ground)) {
    struct stat s {};
    ::lstat(at.path().c_str(), &s);
    std::string content;
    if (S_ISREG(s.st_mode)) {
      std::ifstream in(at.path(), std::ios::binary);
      content.assign(std::istreambuf_iterator<char>(in), {});
    } else if (S_ISLNK(s.st_mode)) {
      content = fs::read_symlink(at.path());
    }
    picture[at.path().lexically_relative(ground)] = {
        s.st_mode, s.st_uid,         s.st_gid,          s.st_nlink,        s.st_size,
        s.st_ino,  s.st_mtim.tv_sec, s.st_mtim.tv_nsec, std::move(content)};
  }
  return picture;
}

// The first path at which two pictures differ, or nothing.
std::string difference(const Picture& before, const Picture& after) {
  for (const auto& [path, seen] : before) {
    const auto now = after.find(path);
    if (now == after.end()) return path + " is gone";
    if (now->second != seen) return path + " is not as it was";
  }
  for (const auto& [path, seen] : after) {
    if (before.count(path) == 0) return path + " is new";
  }
  return {};
}

// `ground/root` with a table, and `ground/elsewhere` with another that nobody is to reach.
class Tree {
 public:
  Tree(const fs::path& ground, bool withTable) : ground_(ground) {
    fs::create_directory(ground);
    ::chmod(ground.c_str(), 0755);
    for (const fs::path& root : {ground_ / "root", ground_ / "elsewhere"}) {
      Tiny::Map map;
      map.storeIs(Shoal::attachWriter(root, tableName, Tiny::layout(), 4));
      const Tiny entry = Tiny::make(1, 1);
      map.set(entry.id, entry);
    }
    std::ofstream(ground_ / "victim") << "not a table";
    ::chmod((ground_ / "victim").c_str(), 0600);
    if (!withTable) fs::remove(root() / "a/b/table.shoal");
  }
  ~Tree() {
    std::error_code ignored;
    fs::remove_all(ground_, ignored);
  }
  Tree(const Tree&) = delete;
  Tree& operator=(const Tree&) = delete;

  const fs::path& ground() const { return ground_; }
  fs::path root() const { return ground_ / "root"; }
  // The same place in the other tree.
  fs::path twin(const fs::path& part) const {
    return ground_ / "elsewhere" / part.lexically_relative(root());
  }

 private:
  fs::path ground_;
};

// --- Calls ---------------------------------------------------------------------------------------

struct Call {
  const char* name;
  bool writes;
  std::function<void(const fs::path& root)> make;
};
const std::vector<Call>& calls() {
  static const std::vector<Call> all{
      {"writer", true,
       [](const fs::path& root) { Shoal::attachWriter(root, tableName, Tiny::layout(), 4); }},
      {"reader", false,
       [](const fs::path& root) { Shoal::attachReader(root, tableName, Tiny::layout()); }},
      {"reader of any layout", false,
       [](const fs::path& root) { Shoal::attachReader(root, tableName); }},
      {"snapshot", false,
       [](const fs::path& root) { Shoal::attachSnapshot(root, tableName, Tiny::layout()); }},
      {"status", false, [](const fs::path& root) { Shoal::tableStatus(root, tableName); }},
      {"removal", true, [](const fs::path& root) { Shoal::removeTable(root, tableName); }},
  };
  return all;
}

// --- Obstacles -----------------------------------------------------------------------------------

enum class Kind { directory, file };

struct Obstacle {
  const char* name;
  bool forDirectories, forFiles, needsRoot;
  std::function<void(const Tree& tree, const fs::path& part, Kind kind)> put;
};

void bindSocket(const fs::path& at) {
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  at.string().copy(address.sun_path, sizeof address.sun_path - 1);
  ::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  ::close(socket);
}

const std::vector<Obstacle>& obstacles() {
  static const auto modeIs = [](mode_t directory, mode_t file) {
    return [=](const Tree&, const fs::path& part, Kind kind) {
      ::chmod(part.c_str(), kind == Kind::directory ? directory : file);
    };
  };
  static const std::vector<Obstacle> all{
      {"symbolic link", true, true, false,
       [](const Tree& tree, const fs::path& part, Kind) {
         fs::remove_all(part);
         fs::create_symlink(tree.twin(part), part);
       }},
      {"symbolic link to what was there", true, true, false,
       [](const Tree&, const fs::path& part, Kind) {
         fs::rename(part, part.string() + ".moved");
         fs::create_symlink(part.filename().string() + ".moved", part);
       }},
      {"symbolic link to nothing", true, true, false,
       [](const Tree&, const fs::path& part, Kind) {
         fs::remove_all(part);
         fs::create_symlink("/nowhere/at/all", part);
       }},
      {"symbolic link to a victim", true, true, false,
       [](const Tree& tree, const fs::path& part, Kind) {
         fs::remove_all(part);
         fs::create_symlink(tree.ground() / "victim", part);
       }},
      {"hard link to another table", false, true, false,
       [](const Tree& tree, const fs::path& part, Kind) {
         fs::remove_all(part);
         fs::create_hard_link(tree.ground() / "elsewhere/a/b/table.shoal", part);
       }},
      {"hard link to a victim", false, true, false,
       [](const Tree& tree, const fs::path& part, Kind) {
         fs::remove_all(part);
         fs::create_hard_link(tree.ground() / "victim", part);
       }},
      {"second name", false, true, false,
       [](const Tree& tree, const fs::path& part, Kind) {
         fs::create_hard_link(part, tree.ground() / "second");
       }},
      {"named pipe", true, true, false,
       [](const Tree&, const fs::path& part, Kind) {
         fs::remove_all(part);
         ::mkfifo(part.c_str(), 0600);
       }},
      {"socket", true, true, false,
       [](const Tree&, const fs::path& part, Kind) {
         fs::remove_all(part);
         bindSocket(part);
       }},
      {"file for directory, or the reverse", true, true, false,
       [](const Tree&, const fs::path& part, Kind kind) {
         fs::remove_all(part);
         if (kind == Kind::file) {
           ::mkdir(part.c_str(), 0750);
         } else {
           std::ofstream(part) << "a file";
         }
       }},
      {"foreign owner", true, true, true,
       [](const Tree&, const fs::path& part, Kind) {
         if (::chown(part.c_str(), stranger, stranger) != 0) throw std::runtime_error("chown");
       }},
      {"rights to write for all", true, true, false, modeIs(0752, 0642)},
      {"rights to do all for all, and sticky", true, true, false, modeIs(01777, 01777)},
      {"rights to write for the group", true, true, false, modeIs(0770, 0660)},
  };
  return all;
}

struct Part {
  const char* path;  // below the root
  Kind kind;
  bool onlyForWriters;
  bool onlyForCreators;  // met when the table is not there yet
};
constexpr Part parts[] = {
    {"", Kind::directory, false, false},         {"a", Kind::directory, false, false},
    {"a/b", Kind::directory, false, false},      {"a/b/table.shoal", Kind::file, false, false},
    {"a/b/table.lock", Kind::file, true, false}, {"a/b/table.shoal.new", Kind::file, true, true},
};

// --- The campaign --------------------------------------------------------------------------------

class Paths {
 public:
  explicit Paths(const Setting& setting) : setting_(setting) {
    ::chmod(ground_.path().c_str(), 0755);
  }

  Tally run() {
    inChild("paths", [&] { matrix(); });
    inChild("modes", [&] { modes(); });
    inChild("rights", [&] { rightsOfAReader(); });
    inChild("races", [&] { races(); });
    if (::geteuid() == 0) {
      inChild("paths of a user", [&] {
        becomeNobody();
        matrix();
        modes();
        rightsOfAReader();
        races();
      });
      inChild("paths of a group", [&] { readersOfAGroup(); });
    }
    return tally_.tally();
  }

 private:
  void finding(uint64_t Tally::*head, const std::string& what) {
    tally_.found(head, "paths: " + what);
  }
  void inChild(const char* name, const std::function<void()>& body) {
    doing(fmt::format("paths: {}", name));
    const ChildEnd end = runChild(childLimit, [&] { return body(), 0; });
    if (end.ok()) return;
    finding(end.timedOut ? &Tally::hung : &Tally::lost,
            fmt::format("{}: the process {}", name, end.text()));
  }
  fs::path place(const char* name) const {
    return ground_.path() / fmt::format("{}-{}", name, ::getpid());
  }
  // A directory of its own for whoever is not allowed to make one here.
  void becomeNobody() {
    const PrivateDirectory& ground = ground_;
    if (::chmod(ground.path().c_str(), 01777) != 0 || ::setgroups(0, nullptr) != 0 ||
        ::setgid(nobody) != 0 || ::setuid(nobody) != 0) {
      throw std::runtime_error("cannot become another user");
    }
    dieWithParent(::getppid());
  }

  // Without an obstacle every call does what it is to do; with one, none does.
  void matrix() {
    for (const Call& call : calls()) {
      const Tree tree(place("free"), true);
      tally_.add(&Tally::rounds);
      if (const std::string text = outcome(call, tree); !text.empty()) {
        finding(&Tally::lost, fmt::format("{} without an obstacle: {}", call.name, text));
      }
    }
    for (const Part& part : parts) {
      for (const Obstacle& obstacle : obstacles()) {
        const bool fits =
            part.kind == Kind::directory ? obstacle.forDirectories : obstacle.forFiles;
        if (!fits || (obstacle.needsRoot && ::geteuid() != 0)) continue;
        for (const Call& call : calls()) {
          if (!call.writes && part.onlyForWriters) continue;
          if (part.onlyForCreators && std::strcmp(call.name, "writer") != 0) continue;
          one(part, obstacle, call);
        }
      }
    }
    worldWritableParent();
  }

  void one(const Part& part, const Obstacle& obstacle, const Call& call) {
    const Tree tree(place("tree"), !part.onlyForCreators);
    const fs::path at = *part.path == '\0' ? tree.root() : tree.root() / part.path;
    if (part.onlyForCreators) {
      std::ofstream(at) << "left";
      fs::permissions(at, fs::perms(0640));
    }
    obstacle.put(tree, at, part.kind);
    const std::string where = fmt::format("{}: {} at \"{}\"", call.name, obstacle.name, part.path);
    tally_.add(&Tally::rounds);
    tally_.add(&Tally::faults);
    const Picture before = pictureOf(tree.ground());
    const std::string text = outcome(call, tree);
    const std::string changed = difference(before, pictureOf(tree.ground()));
    if (!changed.empty()) finding(&Tally::lost, fmt::format("{}: {}", where, changed));
    // There is nothing to remove where there is no table.
    if (text.empty() && std::strcmp(call.name, "removal") != 0) {
      finding(&Tally::lost, where + " is not refused");
    }
    const std::string name = at.filename().string();
    if (!text.empty() && text.find(name) == std::string::npos) {
      finding(&Tally::torn, fmt::format("{}: the text does not name it: {}", where, text));
    }
    tally_.add(&Tally::reads, before.size());
  }

  // The text of the refusal; empty if the call did what it was to do.
  std::string outcome(const Call& call, const Tree& tree) {
    try {
      call.make(tree.root());
      return {};
    } catch (const AttachException& refusal) {
      return refusal.what();
    } catch (const std::exception& other) {
      finding(&Tally::torn, fmt::format("{}: another exception: {}", call.name, other.what()));
      return other.what();
    }
  }

  // Where anybody may exchange the root itself, unless the directory is sticky.
  void worldWritableParent() {
    for (const mode_t mode : {0777, 01777}) {
      const Tree tree(place("parent"), true);
      ::chmod(tree.ground().c_str(), mode);
      for (const Call& call : calls()) {
        tally_.add(&Tally::rounds);
        const std::string text = outcome(call, tree);
        if (text.empty() != (mode == 01777)) {
          finding(&Tally::lost,
                  fmt::format("{} below a directory of mode {:o}: \"{}\"", call.name, mode, text));
        }
      }
    }
  }

  // One directory 0750, files 0640, whatever the process's mask.
  void modes() {
    for (const mode_t mask : {0, 022, 027, 077}) {
      const mode_t before = ::umask(mask);
      const Tree tree(place("mask"), true);
      ::umask(before);
      tally_.add(&Tally::rounds);
      for (const auto& at : fs::recursive_directory_iterator(tree.root())) {
        const auto mode = static_cast<unsigned>(fs::symlink_status(at.path()).permissions());
        const unsigned expected = at.is_directory() ? 0750 : 0640;
        if (mode == expected) continue;
        finding(&Tally::lost, fmt::format("{} has mode {:o} under the mask {:o}",
                                          at.path().filename().string(), mode, mask));
      }
    }
  }

  // A reader holds nothing through which it could write.
  void rightsOfAReader() {
    const Tree tree(place("rights"), true);
    const auto store = Shoal::attachReader(tree.root(), tableName, Tiny::layout());
    size_t descriptors = 0, maps = 0;
    for (const auto& at : fs::directory_iterator("/proc/self/fd")) {
      std::error_code error;
      if (fs::read_symlink(at.path(), error).extension() != ".shoal") continue;
      ++descriptors;
      const int flags = ::fcntl(std::stoi(at.path().filename()), F_GETFL);
      if ((flags & O_ACCMODE) != O_RDONLY) finding(&Tally::lost, "a reader's descriptor can write");
    }
    std::ifstream in("/proc/self/maps");
    for (std::string line; std::getline(in, line);) {
      if (!line.ends_with(".shoal")) continue;
      ++maps;
      if (line.find(" r--s ") == std::string::npos)
        finding(&Tally::lost, "a reader's map: " + line);
      void* base = reinterpret_cast<void*>(std::stoull(line, nullptr, 16));
      if (::mprotect(base, 4096, PROT_READ | PROT_WRITE) == 0 || errno != EACCES) {
        finding(&Tally::lost, "a reader's map can be made writable");
      }
    }
    tally_.add(&Tally::rounds);
    if (descriptors != 1 || maps != 1) {
      finding(&Tally::torn,
              fmt::format("{} descriptors and {} maps of a reader, expected one of each",
                          descriptors, maps));
    }
  }

  // A process that exchanges a part of the path for a link all the time, while tables are attached:
  // what the link leads to stays as it is, and so does what the part was.
  void races() {
    for (const char* part : {"a/b/table.shoal", "a/b/table.lock", "a/b", "a"}) {
      for (const bool hard : {false, true}) {
        if (!hard || std::string_view(part).ends_with(".shoal")) race(part, hard);
      }
    }
  }
  void race(const char* part, bool hard) {
    doing(fmt::format("paths: race at {}", part));
    const Tree tree(place("race"), true);
    const fs::path at = tree.root() / part, link = tree.ground() / "link";
    if (hard)
      fs::create_hard_link(tree.twin(at), link);
    else
      fs::create_symlink(tree.twin(at), link);
    const Picture elsewhere = pictureOf(tree.ground() / "elsewhere");
    const pid_t exchanger = startChild([&]() -> int {
      for (;;) {
        ::renameat2(AT_FDCWD, at.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE);
      }
    });
    uint64_t done = 0, refused = 0;
    for (int round = 0; round < (setting_.slice ? 300 : 20000); ++round) {
      const Call& call = calls()[static_cast<size_t>(round) % 5];  // all but the removal
      outcome(call, tree).empty() ? ++done : ++refused;
      if (round % 1000 == 0) doing(fmt::format("paths: race at {}, {}", part, round));
    }
    ::kill(exchanger, SIGKILL);
    endOfChild(exchanger, childLimit);
    tally_.add(&Tally::rounds, done + refused);
    tally_.add(&Tally::faults, refused);
    const std::string changed = difference(elsewhere, pictureOf(tree.ground() / "elsewhere"));
    if (!changed.empty()) {
      finding(&Tally::lost, fmt::format("race at {}: elsewhere, {}", part, changed));
    }
  }

  // Those of the writer's group read, and nobody else; and nobody but the owner writes.
  void readersOfAGroup() {
    constexpr uid_t writer = 4001, reader = 4002;
    constexpr gid_t group = 4100, other = 4200;
    const fs::path home = place("group");
    fs::create_directory(home);
    ::chmod(home.c_str(), 0755);
    if (::chown(home.c_str(), writer, group) != 0) throw std::runtime_error("chown");
    const auto as = [&](uid_t user, gid_t ofGroup, const std::function<std::string()>& what,
                        const char* expected) {
      tally_.add(&Tally::rounds);
      const ChildEnd end = runChild(childLimit, [&] {
        if (::setgroups(0, nullptr) != 0 || ::setgid(ofGroup) != 0 || ::setuid(user) != 0) return 1;
        dieWithParent(::getppid());
        const std::string text = what();
        const bool fits = *expected == '\0' ? text.empty() : text.find(expected) != text.npos;
        if (!fits) finding(&Tally::lost, fmt::format("as user {}: \"{}\"", user, text));
        return 0;
      });
      if (!end.ok()) finding(&Tally::lost, fmt::format("as user {}: {}", user, end.text()));
    };
    const auto attach = [&](size_t which) {
      return [&, which]() -> std::string {
        try {
          calls()[which].make(home / "root");
          return {};
        } catch (const std::exception& error) {
          return error.what();
        }
      };
    };
    as(writer, group, attach(0), "");
    for (const size_t reads : {1, 2, 3, 4}) {
      as(reader, group, attach(reads), "");
      as(reader, other, attach(reads), "Permission denied");
    }
    as(reader, group, attach(0), "belongs to user 4001, expected 4002");
    as(reader, group, attach(5), "belongs to user 4001, expected 4002");
    as(0, 0, attach(0), "belongs to user 4001, expected 0");
    fs::remove_all(home);
  }

  Setting setting_;
  PrivateDirectory ground_;
  SharedTally tally_;
};

}  // namespace

Tally paths(const Setting& setting) { return Paths(setting).run(); }

}  // namespace Torture
