// vanectl set, del, clear, log-level: what is changed.
#include "tools/common/Exit.h"
#include "tools/vanectl/Client.h"
#include "tools/vanectl/Commands.h"
#include "tools/vanectl/Rows.h"

namespace VaneCtl {
namespace {

void writeOne(Client& client, const v1::RowChange& change) {
  v1::WriteRowsRequest request;
  *request.add_changes() = change;
  const auto response = client.call(&v1::RowDatabase::Stub::WriteRows, request);
  if (response.failures().empty()) return;
  const auto& failure = response.failures(0);
  check(grpc::Status(static_cast<grpc::StatusCode>(failure.code()), failure.message()));
}

}  // namespace

void setRow(const Options& options, Tools::Output&) {
  Client client(options.socket);
  const RowForm form(client.describe(options.table));
  v1::RowChange change;
  change.set_table(options.table);
  *change.mutable_set() = form.row(options.row);
  writeOne(client, change);
}

void deleteRow(const Options& options, Tools::Output&) {
  Client client(options.socket);
  const RowForm form(client.describe(options.table));
  v1::RowChange change;
  change.set_table(options.table);
  *change.mutable_del() = form.key(options.key);
  writeOne(client, change);
}

void clearTable(const Options& options, Tools::Output& out) {
  Client client(options.socket);
  v1::ClearTableRequest request;
  request.set_table(options.table);
  const auto response = client.call(&v1::RowDatabase::Stub::ClearTable, request);
  Tools::RecordWriter records(out, options.output,
                              {Tools::text("table", 18), Tools::number("removed")});
  records << options.table << response.rows();
  records.endRecord();
  records.finish();
}

void logLevel(const Options& options, Tools::Output& out) {
  Client client(options.socket);
  v1::SetLogLevelRequest request;
  request.set_level(options.level);
  const auto response = client.call(&v1::RowDatabase::Stub::SetLogLevel, request);
  Tools::RecordWriter records(out, options.output,
                              {Tools::text("level", 8), Tools::text("previous", 8)});
  records << response.present() << response.previous();
  records.endRecord();
  records.finish();
}

}  // namespace VaneCtl
