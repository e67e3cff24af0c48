#include "simulation/bench/bench_wire.h"

namespace simulation {

VerdictSummary Summarize(const Verdict& verdict) {
  VerdictSummary summary;
  summary.permit = verdict.permit;
  summary.tied_conflict = verdict.tied_conflict;
  if (!verdict.filter) return summary;
  summary.matched = true;
  summary.filter = verdict.filter->key;
  summary.name = verdict.filter->name;
  summary.weight = verdict.filter->weight;
  return summary;
}

void Put(WireWriter& writer, const Connection& connection) {
  writer.Key(connection.layer);
  writer.Blob(connection.app_id);
  writer.U32(static_cast<std::uint32_t>(connection.user_sids.size()));
  for (const Bytes& sid : connection.user_sids) writer.Blob(sid);
  writer.Blob(connection.package_sid);
  writer.U8(connection.protocol);
  writer.U32(connection.local_v4);
  writer.U32(connection.remote_v4);
  writer.Raw(connection.local_v6.data(), connection.local_v6.size());
  writer.Raw(connection.remote_v6.data(), connection.remote_v6.size());
  writer.U16(connection.local_port);
  writer.U16(connection.remote_port);
  writer.U32(connection.flags);
}

Connection TakeConnection(WireReader& reader) {
  Connection connection;
  connection.layer = reader.Key();
  connection.app_id = reader.Blob();
  const std::size_t sids = reader.Count(4);
  for (std::size_t i = 0; i < sids; ++i) connection.user_sids.push_back(reader.Blob());
  connection.package_sid = reader.Blob();
  connection.protocol = reader.U8();
  connection.local_v4 = reader.U32();
  connection.remote_v4 = reader.U32();
  reader.Raw(connection.local_v6.data(), connection.local_v6.size());
  reader.Raw(connection.remote_v6.data(), connection.remote_v6.size());
  connection.local_port = reader.U16();
  connection.remote_port = reader.U16();
  connection.flags = reader.U32();
  return connection;
}

void Put(WireWriter& writer, const VerdictSummary& summary) {
  writer.U8(summary.permit ? 1 : 0);
  writer.U8(summary.tied_conflict ? 1 : 0);
  writer.U8(summary.matched ? 1 : 0);
  writer.Key(summary.filter);
  writer.Text(summary.name);
  Put(writer, summary.weight);
}

VerdictSummary TakeVerdictSummary(WireReader& reader) {
  VerdictSummary summary;
  summary.permit = reader.U8() != 0;
  summary.tied_conflict = reader.U8() != 0;
  summary.matched = reader.U8() != 0;
  summary.filter = reader.Key();
  summary.name = reader.Text();
  summary.weight = TakeValue(reader);
  return summary;
}

void Put(WireWriter& writer, const FilterChange& change) {
  writer.U8(change.added ? 1 : 0);
  writer.Key(change.key);
  writer.U64(change.id);
}

FilterChange TakeFilterChange(WireReader& reader) {
  FilterChange change;
  change.added = reader.U8() != 0;
  change.key = reader.Key();
  change.id = reader.U64();
  return change;
}

void Put(WireWriter& writer, const NetEvent& event) {
  writer.U8(static_cast<std::uint8_t>(event.type));
  writer.U64(static_cast<std::uint64_t>(event.time));
  writer.U64(event.filter_id);
  writer.U16(event.layer_id);
  Put(writer, event.connection);
}

NetEvent TakeNetEvent(WireReader& reader) {
  NetEvent event;
  event.type = static_cast<NetEventType>(reader.U8());
  if (event.type != NetEventType::kDrop && event.type != NetEventType::kAllow) reader.Fail();
  event.time = static_cast<std::int64_t>(reader.U64());
  event.filter_id = reader.U64();
  event.layer_id = reader.U16();
  event.connection = TakeConnection(reader);
  return event;
}

}  // namespace simulation
