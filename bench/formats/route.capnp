@0xd6a8c1f04b3e9275;

using Cxx = import "/capnp/c++.capnp";
$Cxx.namespace("BenchCapnp");

struct Prefix {
  length @0 :UInt8;
  address @1 :Data;
}

struct Route {
  genId @0 :UInt64;
  entryHandle @1 :UInt64;
  valid @2 :Bool;
  entryId @3 :UInt32;
  destinationPrefix @4 :Prefix;
  destinationType @5 :Int32;
  destinationId @6 :UInt32;
}
