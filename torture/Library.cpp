#include "torture/Library.h"

#include <fmt/format.h>
#include <link.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "torture/SharedTally.h"
#include "torture/Watch.h"

namespace Torture {

namespace {

constexpr const char* libraryName = "libP4RuntimeRoutingPlatform.so";
constexpr auto heads = {&Tally::rounds, &Tally::faults, &Tally::reads, &Tally::torn,
                        &Tally::hung,   &Tally::lost,   &Tally::leaked};

}  // namespace

std::filesystem::path libraryDirectory() {
  std::filesystem::path found;
  ::dl_iterate_phdr(
      [](dl_phdr_info* info, size_t, void* out) {
        const std::filesystem::path file = info->dlpi_name;
        if (file.filename().string().rfind(libraryName, 0) != 0) return 0;
        *static_cast<std::filesystem::path*>(out) = file.parent_path();
        return 1;
      },
      &found);
  return std::filesystem::canonical(found);
}

std::string becomeOver(const std::filesystem::path& directory, std::vector<std::string> arguments) {
  std::error_code error;
  const auto wanted = std::filesystem::canonical(directory, error);
  if (error) return fmt::format("{}: {}", directory.string(), error.message());
  ::setenv("LD_LIBRARY_PATH", wanted.c_str(), 1);
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  ::execv("/proc/self/exe", pointers.data());
  return fmt::format("cannot run {}: {}", arguments.front(), std::strerror(errno));
}

Tally runOver(const std::filesystem::path& directory, const char* campaign,
              const Setting& setting) {
  std::array<int, 2> ends;
  if (::pipe(ends.data()) != 0) throw std::runtime_error("no pipe");
  const std::chrono::duration<double, std::ratio<60>> minutes =
      setting.until - std::chrono::steady_clock::now();
  std::vector<std::string> arguments{"torture",    campaign,
                                     "--seed",     std::to_string(setting.seed),
                                     "--library",  directory.string(),
                                     "--minutes",  std::to_string(std::max(0.01, minutes.count())),
                                     "--tally-to", std::to_string(ends[1])};
  if (setting.slice) arguments.emplace_back("--slice");
  if (setting.verbose) arguments.emplace_back("--verbose");
  const pid_t child = startChild([&] {
    ::close(ends[0]);
    fmt::print(stderr, "torture: {}\n", becomeOver(directory, arguments));
    return 2;
  });
  ::close(ends[1]);
  std::string text;
  for (ssize_t size = 1; size > 0;) {
    doing(fmt::format("{} over {}", campaign, directory.string()));
    pollfd readable{ends[0], POLLIN, 0};
    if (::poll(&readable, 1, 1000) <= 0) continue;
    std::array<char, 4096> part;
    size = ::read(ends[0], part.data(), part.size());
    if (size > 0) text.append(part.data(), static_cast<size_t>(size));
  }
  ::close(ends[0]);
  const ChildEnd end = endOfChild(child, std::chrono::seconds(60));
  if (text.empty()) {
    throw std::runtime_error(fmt::format("over {} it {}", directory.string(), end.text()));
  }
  return tallyOf(text);
}

std::string textOf(const Tally& tally) {
  std::ostringstream out;
  for (const auto head : heads) out << tally.*head << '\n';
  for (std::string finding : tally.findings) {
    std::replace(finding.begin(), finding.end(), '\n', ' ');
    out << finding << '\n';
  }
  return out.str();
}

Tally tallyOf(const std::string& text) {
  std::istringstream in(text);
  Tally tally;
  for (const auto head : heads) {
    if (!(in >> tally.*head)) throw std::runtime_error("not a tally: " + text);
  }
  in.ignore();
  for (std::string finding; std::getline(in, finding);) tally.findings.push_back(finding);
  return tally;
}

}  // namespace Torture
