"""What is to be reached, as ratios between figures of one run.

A figure is the time of one item in nanoseconds, by the name of its subject, or a counter of a subject,
"subject#counter". Each check names what it compares, how it comes from the figures, and its bound.
"""

from collections import namedtuple

Check = namedtuple("Check", "row figure wanted value bound sense unit")

MILLION = "/routes:1000000"


def at(name, size=MILLION):
    return name + size


def ratio(over, under, *more):
    """The first figure in units of the sum of the others."""
    return lambda f: f[over] / sum(f[name] for name in (under, *more))


def growth(name):
    """Ten million routes to one million, as they were measured in turns."""
    return ratio(f"growth {name}/routes:10000000", f"growth {name}{MILLION}")


def figure(name, scale=1.0):
    return lambda f: f[name] * scale


def rate(name):
    """Items per second of a figure in nanoseconds."""
    return lambda f: 1e9 / f[name]


def most(row, what, wanted, value, bound, unit="x"):
    return Check(row, what, wanted, value, bound, "<=", unit)


def least(row, what, wanted, value, bound, unit="x"):
    return Check(row, what, wanted, value, bound, ">=", unit)


TYPE = "/IpDestination"
HIT = "BM_TableFind_Hit" + MILLION
MAKE = "BM_RowFromEntry" + TYPE
ALLOCATION = "BM_Bare_Allocation"


def beside(name):
    """A figure of the part in which the adapters take turns with what they are compared with."""
    return f"adapters {name}"


CHECKS = [
    most(1, "row from an entry, to the bare allocation", "<= 1.05", ratio(MAKE, ALLOCATION), 1.05),
    least(1, "FlatBuffers to row from an entry", "ahead", ratio("BM_FlatbuffersFromEntry" + TYPE, MAKE), 1.0),
    least(1, "protobuf to row from an entry", "ahead", ratio("BM_ProtobufFromEntry" + TYPE, MAKE), 1.0),
    least(1, "Cap'n Proto to row from an entry", "ahead", ratio("BM_CapnprotoFromEntry" + TYPE, MAKE), 1.0),
    most(2, "columns by name, to packed loads", "<= 1.05",
         ratio("BM_RowColumns_ByName" + TYPE, "BM_Bare_PackedLoads" + TYPE), 1.05),
    most(3, "key hash, to the steps by hand", "<= 1.1",
         ratio("BM_RowKeyHash" + TYPE, "BM_Bare_KeyHash" + TYPE), 1.1),
    most(3, "row hash, to the steps by hand", "<= 1.1",
         ratio("BM_RowHash" + TYPE, "BM_Bare_RowHash" + TYPE), 1.1),
    most(3, "key equality, to the steps by hand", "<= 1.1",
         ratio("BM_RowKeyEqual" + TYPE, "BM_Bare_KeyEqual" + TYPE), 1.1),
    most(3, "allocations of hashes and equality", "none", figure("instructions#allocations"), 0, ""),
    least(4, "absl to insert into a new table", ">= 2",
          ratio(at("BM_AbslInsert_Fresh"), at("BM_TableInsert_Fresh")), 2),
    least(4, "Boost to insert into a new table", ">= 6",
          ratio(at("BM_BoostInsert_Fresh"), at("BM_TableInsert_Fresh")), 6),
    least(4, "LMDB to insert into a new table", ">= 13",
          ratio(at("BM_LmdbInsert_Fresh"), at("BM_TableInsert_Fresh")), 13),
    most(4, "insert where pages were claimed ahead", "<= 60 ns", figure(at("BM_TableInsert_Claimed")), 60, "ns"),
    least(5, "Boost to replace", ">= 6", ratio(at("BM_BoostReplace"), at("BM_TableReplace")), 6),
    least(5, "LMDB to replace", ">= 16", ratio(at("BM_LmdbReplace"), at("BM_TableReplace")), 16),
    most(5, "replace, to absl", "<= 1.4", ratio(at("BM_TableReplace"), at("BM_AbslReplace")), 1.4),
    most(6, "look-up, to absl", "<= 1.6", ratio(HIT, at("BM_AbslFind_Hit")), 1.6),
    least(6, "Boost to look-up", ">= 5", ratio(at("BM_BoostFind_Hit"), HIT), 5),
    least(6, "LMDB to look-up", ">= 7", ratio(at("BM_LmdbFind_Hit"), HIT), 7),
    most(6, "look-up of 16 in flight, to absl", "<= 1.1",
         ratio(at("BM_TableFind_Batch"), at("BM_AbslFind_Hit")), 1.1),
    most(6, "look-up of an absent key", "<= 45 ns", figure(at("BM_TableFind_Absent")), 45, "ns"),
    most(7, "scan, to a sequential read of its bytes", "<= 1.5",
         ratio(at("BM_TableScan"), at("BM_Bare_SequentialRead")), 1.5),
    most(7, "scan of 10M, to 1M, per entry", "<= 1.05", growth("BM_TableScan"), 1.05),
    most(8, "scan with rows, to the bare allocation", "<= 1.3",
         ratio(beside(at("BM_AdapterScan_Rows")), beside(ALLOCATION)), 1.3),
    most(9, "row(key), to look-up and row", "<= 1.15",
         ratio(beside(at("BM_AdapterRow_Hit")), beside(HIT), beside(MAKE)), 1.15),
    most(9, "find(key), to look-up and row", "<= 1.15",
         ratio(beside(at("BM_AdapterFind_Hit")), beside(HIT), beside(MAKE)), 1.15),
    most(9, "rows of keys, batched", "<= 130 ns", figure(beside(at("BM_AdapterRow_Batch"))), 130, "ns"),
    most(10, "rowIs, to absl's insert", "<= 1.2",
         ratio(beside(at("BM_AdapterRowIs_Fresh")), beside(at("BM_AbslInsert_Fresh"))), 1.2),
    least(11, "two maps to the change log, new keys", ">= 4",
          ratio(at("BM_MapsLogRecord_Fresh"), at("BM_ChangeLogRecord_Fresh")), 4),
    least(11, "two maps to the change log, keys again", ">= 4",
          ratio(at("BM_MapsLogRecord_Again"), at("BM_ChangeLogRecord_Again")), 4),
    most(11, "bytes of the log a key, beyond the key", "<= 24",
         figure(at("BM_ChangeLogRecord_Fresh") + "#bytes_per_key_beyond_it"), 24, "B"),
    most(11, "upper bound of 1M, to 1k (a walk: 1000)", "<= 40",
         ratio(at("BM_ChangeLogUpperBound"), "BM_ChangeLogUpperBound/routes:1000"), 40),
    most(11, "pruning of 1M, to 1k, per change pruned", "<= 10",
         ratio(at("BM_ChangeLogPrune"), "BM_ChangeLogPrune/routes:1000"), 10),
    most(12, "live follower, per change", "<= 60 ns", figure("BM_Follow_Live"), 60, "ns"),
    most(12, "follower of a backlog, per change", "<= 6 ns", figure("BM_Follow_Backlog"), 6, "ns"),
    least(12, "Redis pub/sub to a live follower", ">= 7", ratio("BM_RedisFollow_Live", "BM_Follow_Live"), 7),
    most(13, "write to visible, polling, to a bare ping", "<= 2", ratio("BM_Visible_Polling", "BM_Bare_Ping"), 2),
    most(13, "write to visible, sleeping, to a bare wake", "<= 1.1",
         ratio("BM_Visible_Sleeping", "BM_Bare_FutexWake"), 1.1),
    least(13, "Redis pub/sub to write to visible, sleeping", "ahead",
          ratio("BM_RedisVisible", "BM_Visible_Sleeping"), 1.0),
    most(14, "shared bytes a route", "<= 80", figure(at("BM_Memory_PerRoute") + "#shared_bytes_per_route"), 80, "B"),
    most(14, "private bytes of the agent a route", "<= 48",
         figure(at("BM_Memory_PerRoute") + "#private_bytes_per_route"), 48, "B"),
    most(15, "ten adapters built", "<= 50 ms", figure("BM_AdaptersBuilt/adapters:10", 1e-6), 50, "ms"),
    most(15, "memory that they touch", "<= 16 MiB",
         figure("BM_AdaptersBuilt/adapters:10#touched_bytes", 1 / 1024), 16 * 1024, "KiB"),
    most(16, "look-up of 10M, to 1M", "<= 1.4", growth("BM_TableFind_Hit"), 1.4),
    most(16, "scan of 10M, to 1M", "<= 1.05", growth("BM_TableScan"), 1.05),
    most(16, "insert of 10M, to 1M", "<= 1.3", growth("BM_TableInsert_Fresh"), 1.3),
    most(16, "change log of 10M, to 1M", "<= 1.5", growth("BM_ChangeLogRecord_Fresh"), 1.5),
    most(17, "group of 1,024 to row and back, to copies", "<= 1.3",
         ratio("BM_GroupToRowAndBack/members:1024", "BM_Bare_TwoListsCopied/members:1024"), 1.3),
    least(18, "P4Runtime Write, batches of 1,000", ">= 300,000 /s", rate("P4Runtime_Write/in_flight:1"), 300000, "/s"),
    least(18, "the same, four under way at a time", ">= 300,000 /s", rate("P4Runtime_Write/in_flight:4"), 300000, "/s"),
    most(18, "own share of the agent's instructions", "<= 25 %", figure("P4Runtime_Write#own_share", 100), 25, "%"),
    least(19, "P4Runtime Read of 1M entries", ">= 1M /s", rate("P4Runtime_Read"), 1e6, "/s"),
    least(19, "vanectl dump of 1M", ">= 1M /s", rate("Vanectl_Dump"), 1e6, "/s"),
    least(19, "shoalctl show of 1M", ">= 1M /s", rate("Shoalctl_Show"), 1e6, "/s"),
    most(19, "first line of vanectl dump", "<= 50 ms", figure("Vanectl_Dump#first_ms"), 50, "ms"),
    most(19, "first line of shoalctl show", "<= 50 ms", figure("Shoalctl_Show#first_ms"), 50, "ms"),
    most(19, "memory of vanectl dump, 1M to 100k", "<= 1.1", figure("Vanectl_Dump#memory_growth"), 1.1),
    most(19, "memory of shoalctl show, 1M to 100k", "<= 1.1", figure("Shoalctl_Show#memory_growth"), 1.1),
]

CHECKS.append(most(21, "agent killed and restarted, to its first answer", "<= 2 s",
                   figure("Restart#first_answer_ms", 1e-3), 2, "s"))

# As a 32-bit program: the subjects of rows 1 to 11, each to the same subject of the 64-bit build.
SUBJECTS_32 = [
    MAKE, "BM_RowColumns_ByName" + TYPE, "BM_RowKeyHash" + TYPE, "BM_RowHash" + TYPE,
    "BM_RowKeyEqual" + TYPE, at("BM_TableInsert_Fresh"), at("BM_TableReplace"), HIT,
    at("BM_TableFind_Absent"), at("BM_TableScan"), at("BM_AdapterScan_Rows"), at("BM_AdapterRow_Hit"),
    at("BM_AdapterFind_Hit"), at("BM_AdapterRowIs_Fresh"), at("BM_ChangeLogRecord_Fresh"),
    at("BM_ChangeLogRecord_Again"),
]
CHECKS += [
    most(20, "32 bits: " + name.removeprefix("BM_").removesuffix(MILLION).removesuffix(TYPE), "<= 1.5",
         ratio("m32 " + name, "m64 " + name), 1.5)
    for name in SUBJECTS_32
]

# What is told beside the ratios, by subject.
ABSOLUTES = [
    ("one access to memory somewhere", "BM_Bare_RandomAccess"),
    ("an entry's bytes, read one behind the other", at("BM_Bare_SequentialRead")),
    ("make_shared and calloc of a row, and both freed", ALLOCATION),
    ("row from an entry", MAKE),
    ("columns by name", "BM_RowColumns_ByName" + TYPE),
    ("insert into a new table", at("BM_TableInsert_Fresh")),
    ("absl: insert", at("BM_AbslInsert_Fresh")),
    ("Boost: insert", at("BM_BoostInsert_Fresh")),
    ("LMDB: insert", at("BM_LmdbInsert_Fresh")),
    ("insert where pages were claimed ahead", at("BM_TableInsert_Claimed")),
    ("replace", at("BM_TableReplace")),
    ("absl: replace", at("BM_AbslReplace")),
    ("Boost: replace", at("BM_BoostReplace")),
    ("LMDB: replace", at("BM_LmdbReplace")),
    ("look-up", HIT),
    ("look-up of a key that comes from the one before", at("BM_TableFind_InTurn")),
    ("look-up, 16 in flight, each", at("BM_TableFind_Batch")),
    ("absl: look-up", at("BM_AbslFind_Hit")),
    ("absl: look-up of a key that comes from the one before", at("BM_AbslFind_InTurn")),
    ("look-up of an absent key", at("BM_TableFind_Absent")),
    ("Boost: look-up", at("BM_BoostFind_Hit")),
    ("LMDB: look-up", at("BM_LmdbFind_Hit")),
    ("scan, an entry", at("BM_TableScan")),
    ("scan with rows, a row", beside(at("BM_AdapterScan_Rows"))),
    ("the adapter's row(key)", beside(at("BM_AdapterRow_Hit"))),
    ("the adapter's find(key), and its row", beside(at("BM_AdapterFind_Hit"))),
    ("rows of keys, 16 in flight, each", beside(at("BM_AdapterRow_Batch"))),
    ("rowIs, a new row", beside(at("BM_AdapterRowIs_Fresh"))),
    ("change log, a new key", at("BM_ChangeLogRecord_Fresh")),
    ("change log, a key again", at("BM_ChangeLogRecord_Again")),
    ("write to visible, polling", "BM_Visible_Polling"),
    ("a bare ping", "BM_Bare_Ping"),
    ("write to visible, sleeping", "BM_Visible_Sleeping"),
    ("a bare futex wake", "BM_Bare_FutexWake"),
]
