// The calls of the Thrift server that the benchmark brings along.
namespace cpp Brantel.Bench.ThriftCalls

struct Got {
  1: i64 time,
  2: binary value,
}

service ThriftPeer {
  i64 Count(1: i64 row),
  i64 LastTime(1: i64 row),
  i64 Append(1: i64 row, 2: binary value),
  Got Read(1: i64 row, 2: i64 time, 3: bool backwards),
  i64 Wait(1: i64 row, 2: i64 time),
}
