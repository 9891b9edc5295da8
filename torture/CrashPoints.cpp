// Kills the writer at every crash point that an operation reaches, and looks at what is left; then
// kills the next writer at every crash point of its repair, and looks again.
#include <dlfcn.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <random>
#include <set>
#include <stdexcept>

#include "platform/Shoal/CrashPoint.h"
#include "torture/Library.h"
#include "torture/Operations.h"
#include "torture/SharedTally.h"
#include "torture/Watch.h"

namespace Torture {

namespace {

using Shoal::CrashPoint;
using std::filesystem::path;

constexpr size_t mostPoints = 256;

// The list of the library that is loaded, or none if it has no crash points.
std::vector<CrashPoint*> pointsOfLibrary() {
  std::vector<CrashPoint*> points;
  const auto first =
      reinterpret_cast<CrashPoint*& (*)()>(::dlsym(RTLD_DEFAULT, "shoal_crash_points"));
  if (first == nullptr) return points;
  for (CrashPoint* point = first(); point != nullptr; point = point->next) points.push_back(point);
  std::sort(points.begin(), points.end(), [](const CrashPoint* a, const CrashPoint* b) {
    return std::string_view(a->name) < b->name;
  });
  if (points.size() > mostPoints) throw std::runtime_error("more crash points than expected");
  return points;
}

// What a writer that is to be killed tells of itself.
struct Account {
  std::array<uint64_t, mostPoints> reached{};
  std::atomic<size_t> stepsDone{0};
};

struct Death {
  size_t point;
  uint64_t at;  // which time it is reached
};

// The writer's life: arms what it is given when the part begins that is to be interrupted.
using Life = std::function<void(const std::function<void()>& arm)>;

class CrashPointCampaign {
 public:
  explicit CrashPointCampaign(const Setting& setting)
      : setting_(setting), random_(setting.seed), points_(pointsOfLibrary()) {}

  Tally run() {
    for (const Operation& operation : operations()) interrupt(operation);
    for (size_t point = 0; point < points_.size() && !setting_.slice; ++point) {
      if (met_.count(point) != 0) continue;
      tally_.found(&Tally::lost,
                   fmt::format("no operation reaches the point \"{}\"", points_[point]->name));
    }
    if (setting_.verbose) {
      fmt::print("{} crash points in the library, {} of them met\n", points_.size(), met_.size());
    }
    return tally_;
  }

 private:
  // Runs a writer that dies where it is told, or goes on to its end; whether it did as told.
  bool runWriter(const std::optional<Death>& death, const Life& life) {
    account_->reached.fill(0);
    account_->stepsDone = 0;
    const pid_t child = startChild([&] {
      for (CrashPoint* point : points_) point->reached = point->dieAt = 0;
      life([&] {
        for (CrashPoint* point : points_) point->reached = 0;
        if (death) points_[death->point]->dieAt = death->at;
      });
      return 0;
    });
    int status = 0;
    ::waitpid(child, &status, 0);
    ++tally_.rounds;
    if (death) ++tally_.faults;
    return death ? WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL : status == 0;
  }

  // What the points have counted since they were armed; they do nothing any more.
  void takeStock() {
    for (size_t point = 0; point < points_.size(); ++point) {
      account_->reached[point] = points_[point]->reached;
      points_[point]->dieAt = 0;
    }
  }

  Life lifeOf(const Operation& operation, const path& root) {
    return [&, this](const std::function<void()>& arm) {
      if (operation.attaches) {
        arm();
        operation.attaches(root);
        return takeStock();
      }
      const Store table =
          Shoal::attachWriter(root, tableName, operation.shape.layout, operation.shape.capacity);
      arm();
      for (const auto& step : operation.steps) {
        step(*table);
        ++account_->stepsDone;
      }
      takeStock();
    };
  }

  Life attaching(const Operation& operation, const path& root) {
    return [&, this](const std::function<void()>& arm) {
      arm();
      const Store table =
          Shoal::attachWriter(root, tableName, operation.shape.layout, operation.shape.capacity);
      takeStock();
    };
  }

  // Where a writer that has just run to its end could have died: at each point that it reached, the
  // first times and the last.
  std::vector<Death> deaths(uint64_t firstTimes) {
    std::vector<Death> all;
    for (size_t point = 0; point < points_.size(); ++point) {
      const uint64_t times = account_->reached[point];
      if (times != 0) met_.insert(point);
      for (uint64_t at = 1; at <= std::min(times, firstTimes); ++at) all.push_back({point, at});
      if (times > firstTimes) all.push_back({point, times});
    }
    return all;
  }

  std::string text(const Death& death) const {
    return fmt::format("\"{}\" (time {})", points_[death.point]->name, death.at);
  }

  bool oneIn(uint64_t count) { return random_() % count == 0; }

  void interrupt(const Operation& operation) {
    const Course course = courseOf(operation);
    Examiner examiner(tally_, operation.shape);
    std::vector<Death> all;
    {
      const PrivateDirectory directory;
      prepare(operation, directory.path() / "root");
      if (!runWriter(std::nullopt, lifeOf(operation, directory.path() / "root"))) {
        tally_.found(&Tally::lost, fmt::format("{} does not come to its end", operation.name));
      }
      all = deaths(3);
    }
    if (setting_.verbose) {
      for (size_t point = 0; point < points_.size(); ++point) {
        const uint64_t times = account_->reached[point];
        if (times == 0) continue;
        fmt::print("{:<36} {:<40} {:>6}\n", operation.name, points_[point]->name, times);
      }
    }
    if (slowness == 1) killedAt_.clear();
    for (const Death& death : all) {
      // A slice has a kill at every point of every operation, if not each time it is reached; where
      // all is slower, at every point of some operation.
      const bool isNew = killedAt_.insert(death.point).second;
      if (setting_.slice && !isNew && !oneIn(6 * slowness)) continue;
      examiner.contextIs(fmt::format("{} killed at {}", operation.name, text(death)));
      doing(examiner.context());
      dieAndLook(operation, course, death, examiner);
    }
  }

  void dieAndLook(const Operation& operation, const Course& course, const Death& death,
                  Examiner& examiner) {
    const PrivateDirectory directory;
    const path root = directory.path() / "root";
    prepare(operation, root);
    Store watching;
    if (course.contents[0]) {
      watching = Shoal::attachReader(root, tableName, operation.shape.layout);
    }
    if (!runWriter(death, lifeOf(operation, root))) {
      tally_.found(&Tally::lost, examiner.context() + ": the writer was not killed there");
    }
    const Between between = course.between(account_->stepsDone);
    if (watching) examiner.reader(*watching, heldBy(between));
    examiner.newReader(root, tableName, between);
    if (std::filesystem::exists(root)) interruptRepair(operation, root, between, examiner);
    examiner.nextWriter(root, tableName, between, between.after ? watching.get() : nullptr);
  }

  // The table of those who were attached before it was removed is as it was.
  static Between heldBy(Between between) {
    if (!between.after) between.after = between.before;
    return between;
  }

  void interruptRepair(const Operation& operation, const path& root, const Between& between,
                       Examiner& examiner) {
    const std::string context = examiner.context();
    const path copy = root.parent_path() / "copy";
    const auto copyAgain = [&] {
      std::filesystem::remove_all(copy);
      std::filesystem::copy(root, copy, std::filesystem::copy_options::recursive);
    };
    copyAgain();
    if (!runWriter(std::nullopt, attaching(operation, copy))) {
      return tally_.found(&Tally::lost, context + ": the next writer does not attach");
    }
    const std::vector<Death> all = deaths(1);
    for (const Death& death : all) {
      if (setting_.slice && !oneIn(8 * slowness)) continue;
      copyAgain();
      const Death again = all[random_() % all.size()];
      examiner.contextIs(fmt::format("{}, and its repair at {}", context, text(death)));
      doing(examiner.context());
      if (!runWriter(death, attaching(operation, copy))) {
        tally_.found(&Tally::lost, examiner.context() + ": the writer was not killed there");
      }
      examiner.newReader(copy, tableName, between);
      examiner.contextIs(fmt::format("{}, and again at {}", examiner.context(), text(again)));
      runWriter(again, attaching(operation, copy));  // which may no longer come there
      examiner.newReader(copy, tableName, between);
      examiner.nextWriter(copy, tableName, between);
    }
    examiner.contextIs(context);
  }

  const Setting& setting_;
  std::mt19937_64 random_;
  std::vector<CrashPoint*> points_;
  std::set<size_t> met_, killedAt_;
  SharedMemory<Account> account_;
  Tally tally_;
};

}  // namespace

// The library that is loaded may have crash points itself; else there is one beside it that has.
Tally crashPoints(const Setting& setting) {
  if (::dlsym(RTLD_DEFAULT, "shoal_crash_points") != nullptr) {
    return CrashPointCampaign(setting).run();
  }
  return runOver(libraryDirectory() / "points", "crash-points", setting);
}

}  // namespace Torture
