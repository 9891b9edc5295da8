# Bugs that the campaigns have to find: builds of the platform's library in which one line of the
# tables is wrong. `./dev torture --planted` builds each and runs the campaigns over it.
#
# plant(<name> <file of platform/Shoal> <text that stands in it once> <text in its place> ...)
add_custom_target(planted)

function(plant name file)
  file(READ ${CMAKE_SOURCE_DIR}/platform/Shoal/${file} text)
  math(EXPR last "${ARGC} - 1")
  foreach(before RANGE 2 ${last} 2)
    math(EXPR after "${before} + 1")
    string(FIND "${text}" "${ARGV${before}}" from)
    string(FIND "${text}" "${ARGV${before}}" to REVERSE)
    if(from EQUAL -1 OR NOT from EQUAL to)
      message(FATAL_ERROR "planted bug ${name}: ${file}: expected once: ${ARGV${before}}")
    endif()
    string(REPLACE "${ARGV${before}}" "${ARGV${after}}" text "${text}")
  endforeach()
  set(tree ${CMAKE_BINARY_DIR}/planted/${name})
  file(CONFIGURE OUTPUT ${tree}/platform/Shoal/${file} CONTENT "${text}" @ONLY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
    ${CMAKE_SOURCE_DIR}/platform/Shoal/${file})

  # A header is in all of the tables; of a source, the others are those of the sound build.
  set(sources ${table_sources})
  if(file MATCHES "[.]cpp$")
    set(sources ${tree}/platform/Shoal/${file}
      $<FILTER:$<TARGET_OBJECTS:platform_points>,EXCLUDE,/platform/Shoal/${file}>)
  endif()
  set(target platform_planted_${name})
  add_platform_variant(${target} planted/${name} ${sources})
  target_include_directories(${target} BEFORE PRIVATE ${tree})
  # What a bug leaves unused is part of it.
  target_compile_options(${target} PRIVATE -w)
  set_target_properties(${target} PROPERTIES EXCLUDE_FROM_ALL ON)
  add_dependencies(planted ${target})
  file(APPEND ${CMAKE_BINARY_DIR}/planted/names.txt.new "${name}\n")
endfunction()

file(REMOVE ${CMAKE_BINARY_DIR}/planted/names.txt.new)

# Entries.
plant(entry-never-odd TableWriter.cpp
  [[  put(head.sequence, odd);
  crashPoint<"entry: sequence odd">();]]
  [[  crashPoint<"entry: sequence odd">();]])
plant(entry-even-before-its-bytes TableWriter.cpp
  [[  copyIn(entryOf(head), entry, table_.shape.entrySize);
  crashPoint<"entry: bytes written">();
  put(head.sequence, odd + 1);]]
  [[  put(head.sequence, odd + 1);
  crashPoint<"entry: bytes written">();
  copyIn(entryOf(head), entry, table_.shape.entrySize);]])
plant(reader-does-not-look-again TableView.h
  [=[  if (look(head.sequence) != sequence) [[unlikely]]
    return Seen::moved;
]=] "")
plant(walk-leaves-out-what-moves TableReader.cpp
  [=[      if (seen == Seen::moved) [[unlikely]]
        seen = readAgain(slot, out);
]=] "")
plant(batch-goes-on-behind-its-first-entry TableReader.cpp
  [[  hint.keyHash = keyMark(out - shape.entrySize + shape.keyOffset, shape.keySize);]]
  [[  hint.keyHash = keyMark(out - shape.entrySize + shape.keyOffset, shape.keySize);
  if (out - entries > shape.entrySize) hint.slot -= 1;]])
# What a processor may make of loads or stores without an order, on one that keeps them in order.
plant(reader-looks-again-too-early TableView.h
  [[  copyOut(copy.data(), entry, table.shape.entrySize);
  if (look(head.sequence) != sequence)]]
  [[  const uint32_t again = look(head.sequence);
  copyOut(copy.data(), entry, table.shape.entrySize);
  if (again != sequence)]])
plant(erase-listed-before-its-entry-is-gone TableWriter.cpp
  [[  put(table_.slot(slot).state, freeState(header().freeHead));
  crashPoint<"erase: entry gone">();
  put(header().freeHead, slot + 1);]]
  [[  const uint32_t next = header().freeHead;
  put(header().freeHead, slot + 1);
  crashPoint<"erase: entry gone">();
  put(table_.slot(slot).state, freeState(next));]])
plant(insert-live-before-its-entry TableWriter.cpp
  [[  SlotHead& head = table_.slot(slot);
  writeEntry(head, entry);]]
  [[  SlotHead& head = table_.slot(slot);
  put(head.state, slotLive);
  writeEntry(head, entry);]])
plant(insert-live-before-its-index-word TableWriter.cpp
  [[  SlotHead& head = table_.slot(slot);
  writeEntry(head, entry);]]
  [[  SlotHead& head = table_.slot(slot);
  writeEntry(head, entry);
  put(head.state, slotLive);
  crashPoint<"insert: live too early">();]])
plant(insert-where-its-search-ended-before-the-index-changed TableWriter.cpp
  [[if (reusable == 0 && header.indexVersion == version)]] [[if (place != noPlace)]])
plant(insert-not-counted TableWriter.cpp
  [[  put(header.live, header.operation.liveBefore + 1);
  crashPoint<"insert: counted">();]]
  [[  crashPoint<"insert: counted">();]])
plant(erase-loses-its-slot TableWriter.cpp
  [[  put(header().freeHead, slot + 1);
  crashPoint<"erase: slot listed as free">();]]
  [[  crashPoint<"erase: slot listed as free">();]])

# The journal.
plant(journal-left-out TableWriter.cpp [[  keepInJournal(slot, odd);
]] "")
plant(journal-kept-after-the-entry TableWriter.cpp
  [[  keepInJournal(slot, odd);
  writeEntry(head, entry);]]
  [[  writeEntry(head, entry);
  keepInJournal(slot, odd);]])

# The record of the operation under way.
plant(operation-not-recorded TableWriter.cpp
  [[  put(operation.kind, kind);
]] [[  static_cast<void>(kind);
]])
plant(operation-recorded-before-its-fields TableWriter.cpp
  [[  put(operation.slot, slot);
  put(operation.liveBefore, header.live);]]
  [[  put(operation.kind, kind);
  crashPoint<"record: too early">();
  put(operation.slot, slot);
  put(operation.liveBefore, header.live);]])
plant(operation-never-over TableWriter.cpp
  [[  crashPoint<"record: change told">();
  put(operation.kind, OperationRecord::none);]]
  [[  crashPoint<"record: change told">();]])

# Repair.
plant(repair-forgets-the-count-of-an-insert TableWriter.cpp
  [[    put(header().live, header().operation.liveBefore + 1);
    crashPoint<"repair: insert counted">();]] "")
plant(repair-forgets-the-count-of-an-erase TableWriter.cpp
  [[    put(header().live, header().operation.liveBefore - 1);
    crashPoint<"repair: erase counted">();]] "")
plant(repair-loses-the-slot-of-an-insert TableWriter.cpp
  [[  put(header().freeHead, slot + 1);
  crashPoint<"repair: insert's slot listed as free">();]] "")
plant(repair-keeps-a-torn-entry TableWriter.cpp
  [[      copyIn(table_.entry(slot), kept, table_.shape.entrySize);
      crashPoint<"repair: old entry back">();]] "")
plant(repair-leaves-a-hole TableWriter.cpp [[  index_.finishRemoval();
]] "")

# The index.
plant(hole-emptied-before-its-word-is-copied TableIndex.cpp
  [[    put(words[hole], words[from]);
    crashPoint<"hole: word copied">();]]
  [[    const uint32_t word = words[from];
    put(words[from], 0);
    crashPoint<"hole: word copied">();
    put(words[hole], word);]])
plant(hole-not-recorded TableIndex.cpp
  [[  put(table_.header().operation.hole, at + 1);
]] "")
plant(level-used-before-it-is-filled TableIndex.cpp
  [[  Header& header = table_.header();
  for (uint32_t slot = 0; slot < header.highWater; ++slot) {]]
  [[  Header& header = table_.header();
  put(header.indexLevel, next);
  for (uint32_t slot = 0; slot < header.highWater; ++slot) {]])
plant(level-not-emptied-first TableIndex.cpp
  [[  std::memset(table_.index(next), 0, bytes);
]] "")
plant(index-emptied-from-the-front TableIndex.cpp
  [[words[(empty - distance) & mask];]] [[words[(empty + distance) & mask];]])
plant(word-leads-anywhere TableIndex.h
  [[if (slot >= table.plan.capacity) table.corrupt("index word without a slot");]]
  [[if (slot > table.plan.capacity * 64) table.corrupt("index word without a slot");]])
plant(probe-without-an-end TableIndex.h
  [[  for (uint32_t count = 0; count <= mask; ++count, at = (at + 1) & mask) {]]
  [[  for (uint32_t count = 0; count <= UINT32_MAX; at = (at + 1) & mask) {]])

# Changes.
plant(change-counted-before-its-key TableWriter.cpp
  [[  put(record.number, 0);
  crashPoint<"change: record opened">();]]
  [[  put(record.number, number);
  put(header.changes, number);
  crashPoint<"change: record opened">();]])
plant(change-told-twice TableWriter.cpp
  [[  if (header.changes == operation.changesBefore) publish(kind, operation.slot);]]
  [[  publish(kind, operation.slot);]])

# Bounds and memory.
plant(memory-not-claimed Memory.cpp
  [[  return result == 0;]] [[  return true;]])
plant(file-size-not-checked TableFormat.cpp
  [[{"file size", fileSize, expected.fileSize}]] [[{"file size", fileSize, fileSize}]])
plant(slots-in-use-not-checked TableView.h [[(value > plan.capacity)]] [[(value > plan.capacity * 64)]])
# Calls that the kernel refuses.
plant(file-not-sized-goes-on TableFile.cpp
  [[    if (::ftruncate(file.get(), static_cast<off_t>(size)) != 0) refuseErrno("size the file");]]
  [[    if (::ftruncate(file.get(), static_cast<off_t>(size)) != 0) errno = 0;]])
plant(interrupted-claim-not-made-again Memory.cpp
  [[  } while (result != 0 && errno == EINTR);]] [[  } while (false);]])
plant(half-made-file-kept TableFile.cpp
  [[  } catch (...) {
    ::unlinkat(directory_.get(), temporary_.c_str(), 0);
    throw;
  }]] [[  } catch (...) {
    throw;
  }]])
plant(descriptor-kept-when-a-directory-is-refused TableFile.cpp
  [[  if (::fstat(directory.get(), &status) != 0) refuseErrno("look at the directory " + part);]]
  [[  if (::fstat(directory.get(), &status) != 0) {
    const int refused = errno;
    static_cast<void>(::dup(directory.get()));
    errno = refused;
    refuseErrno("look at the directory " + part);
  }]])
plant(emptied-in-part TableWriter.cpp [[  ensureChanges(header().live);
]] "")

# Files and processes.
plant(lock-not-taken TableFile.cpp
  [[  if (::fcntl(file.get(), F_OFD_SETLK, &lock) == 0) {]]
  [[  if (::fcntl(file.get(), F_OFD_GETLK, &lock) == 0) {]])
plant(links-followed TableFile.cpp
  [[O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;]] [[O_NONBLOCK | O_CLOEXEC;]]
  [[AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT)]] [[0) != 0) {
      if (errno == ENOENT)]])
plant(second-name-not-seen TableFile.cpp [[  if (status.st_nlink > 1) {]] [[  if (status.st_nlink > 100) {]])
plant(table-named-before-it-is-filled TableFile.cpp [[    fill(std::move(copy));
]] [[    ::renameat(directory_.get(), temporary_.c_str(), directory_.get(), file_.c_str());
    crashPoint<"create: named too early">();
    fill(std::move(copy));
    if (errno == errno) return file;
]])

file(RENAME ${CMAKE_BINARY_DIR}/planted/names.txt.new ${CMAKE_BINARY_DIR}/planted/names.txt)
