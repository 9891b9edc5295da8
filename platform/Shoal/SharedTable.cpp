#include "platform/Shoal/SharedTable.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <utility>

#include "platform/Shoal/CrashPoint.h"
#include "platform/Shoal/Store.h"
#include "platform/Shoal/TableFile.h"
#include "platform/Shoal/TableWriter.h"

namespace Shoal {

namespace {

using Access = TableFile::Access;

// Reads the header first and looks at the size then, so that a file that is cut short meanwhile is
// found to be. Refuses the file unless it is a faultless table, of this layout if one is given.
Header checkedHeader(const TableFile& place, const FileDescriptor& file,
                     const EntryLayout* layout) {
  const auto header = place.readHeader(file);
  const auto size = static_cast<uint64_t>(place.statusOf(file.get()).st_size);
  if (!header) {
    place.refuse("not a shared table: " + std::to_string(size) + " bytes, expected at least " +
                 std::to_string(sizeof(Header)));
  }
  std::string fault = headerFault(*header, size);
  if (fault.empty() && layout != nullptr) fault = layoutDifference(layoutOf(*header), *layout);
  if (!fault.empty()) place.refuse(fault);
  return *header;
}

// The file, mapped, and still as long as it was when it was looked at.
std::unique_ptr<Memory> mapped(const TableFile& place, FileDescriptor file, uint64_t size,
                               bool writable) {
  const int number = file.get();
  auto memory = std::make_unique<Memory>(std::move(file), size, writable, place.name());
  const auto now = static_cast<uint64_t>(place.statusOf(number).st_size);
  if (now < size) {
    place.refuse("cut short while it was attached: " + std::to_string(now) + " bytes, expected " +
                 std::to_string(size));
  }
  return memory;
}

Plan planOf(const Header& header) {
  return Plan(header.entrySize, header.keyOffset, header.keySize, header.capacity);
}

std::shared_ptr<Store> attachForReading(const std::filesystem::path& root,
                                        const std::string& tablePath, const EntryLayout* layout) {
  const TableFile place(root, tablePath, Access::read);
  auto file = place.open(Access::read);
  if (!file) place.refuse("no such table");
  const Header header = checkedHeader(place, *file, layout);
  auto memory = mapped(place, std::move(*file), header.fileSize, false);
  return Store::make(Mode::reader, layoutOf(header), planOf(header), std::move(memory),
                     FileDescriptor(), tablePath);
}

FileDescriptor createTable(const TableFile& place, const EntryLayout& layout, uint64_t capacity) {
  if (const std::string fault = layoutFault(layout, capacity); !fault.empty()) place.refuse(fault);
  const Plan plan(layout.entrySize, layout.keyOffset, layout.keySize,
                  static_cast<uint32_t>(capacity));
  return place.create(plan.fileSize, [&](FileDescriptor file) {
    Memory memory(std::move(file), plan.fileSize, true, place.name());
    format(memory, layout, plan);
  });
}

bool thisProcessIsWriter(const Header& header, const std::string& tablePath) {
  const auto pid = static_cast<uint32_t>(::getpid());
  return header.writerPid == pid && processStart(pid, tablePath) == header.writerStart;
}

}  // namespace

std::filesystem::path defaultRoot() {
  if (const char* root = std::getenv("SHOAL_ROOT"); root != nullptr && *root != '\0') return root;
  return "/dev/shm/shoal-" + std::to_string(::getuid());
}

std::filesystem::path tableFile(const std::filesystem::path& root, const std::string& tablePath) {
  tablePathParts(tablePath);
  return root / (tablePath + ".shoal");
}

std::vector<std::string> tablesBelow(const std::filesystem::path& root) {
  std::vector<std::string> tables;
  std::error_code error;
  std::filesystem::recursive_directory_iterator at(root, error);
  for (; !error && at != std::filesystem::end(at); at.increment(error)) {
    if (at->path().extension() != ".shoal") continue;
    const auto type = at->symlink_status(error).type();
    if (type == std::filesystem::file_type::none) break;
    if (type != std::filesystem::file_type::regular) continue;
    tables.push_back(at->path().lexically_relative(root).replace_extension().string());
  }
  if (error && error != std::errc::no_such_file_or_directory) {
    AttachException::throwException("tables below \"" + root.string() +
                                    "\": cannot list them: " + error.message());
  }
  std::sort(tables.begin(), tables.end());
  return tables;
}

std::shared_ptr<TableStore> attachWriter(const std::filesystem::path& root,
                                         const std::string& tablePath, const EntryLayout& layout,
                                         uint64_t capacity) {
  const TableFile place(root, tablePath, Access::write);
  FileDescriptor lock = place.lock();
  auto file = place.open(Access::write);
  if (!file) file = createTable(place, layout, capacity);
  const Header header = checkedHeader(place, *file, &layout);
  if (header.capacity < capacity) {
    place.refuse("capacity " + std::to_string(header.capacity) + ", expected at least " +
                 std::to_string(capacity));
  }
  const Plan plan = planOf(header);
  if (const std::string fault = stateFault(header, plan); !fault.empty()) {
    place.refuse("damaged: " + fault);
  }
  auto memory = mapped(place, std::move(*file), plan.fileSize, true);
  crashPoint<"attach: file mapped">();
  return Store::make(Mode::writer, layout, plan, std::move(memory), std::move(lock), tablePath);
}

std::shared_ptr<TableStore> attachReader(const std::filesystem::path& root,
                                         const std::string& tablePath, const EntryLayout& layout) {
  return attachForReading(root, tablePath, &layout);
}

std::shared_ptr<TableStore> attachReader(const std::filesystem::path& root,
                                         const std::string& tablePath) {
  return attachForReading(root, tablePath, nullptr);
}

std::shared_ptr<TableStore> attachSnapshot(const std::filesystem::path& root,
                                           const std::string& tablePath,
                                           const EntryLayout& layout) {
  return Store::snapshotOf(*attachForReading(root, tablePath, &layout));
}

void removeTable(const std::filesystem::path& root, const std::string& tablePath) {
  // What else stands in the way of looking is told below.
  std::error_code error;
  if (!std::filesystem::exists(tableFile(root, tablePath), error) && !error) return;
  const TableFile place(root, tablePath, Access::write);
  const auto file = place.open(Access::read);
  if (!file) return;
  const auto header = place.readHeader(*file);
  FileDescriptor lock;
  if (!header || !thisProcessIsWriter(*header, tablePath)) lock = place.lock();
  crashPoint<"remove: nobody else writes">();
  place.remove();
}

const char* tableAtAddress(const void* address) noexcept { return Memory::nameAt(address); }

TableStatus tableStatus(const std::filesystem::path& root, const std::string& tablePath) {
  const TableFile place(root, tablePath, Access::read);
  const auto file = place.open(Access::read);
  if (!file) place.refuse("no such table");
  const Header header = checkedHeader(place, *file, nullptr);

  TableStatus result;
  result.path = tablePath;
  result.layout = layoutOf(header);
  result.entries = std::min(header.live, header.capacity);
  result.capacity = header.capacity;
  result.bytes = static_cast<uint64_t>(place.statusOf(file->get()).st_blocks) * 512;
  result.generation = header.generation;
  result.changes = header.changes;
  result.writerPid = place.locked() ? static_cast<int32_t>(header.writerPid) : 0;
  return result;
}

}  // namespace Shoal
