// vanectl tables, describe, get, scan, dump: what is there.
#include <fmt/format.h>

#include "platform/Vane/RowLayout.h"
#include "tools/common/Exit.h"
#include "tools/vanectl/Client.h"
#include "tools/vanectl/Commands.h"
#include "tools/vanectl/Rows.h"

namespace VaneCtl {
namespace {

using Tools::absent;
using Tools::number;
using Tools::RecordWriter;
using Tools::text;

// Calls `each` with every row that the agent sends.
template <class Each>
void scan(Client& client, const v1::ScanRowsRequest& request, Each each) {
  grpc::ClientContext context;
  const auto reader = client.stub().ScanRows(&context, request);
  v1::ScanRowsResponse response;
  while (reader->Read(&response)) {
    for (const v1::Row& row : response.rows()) each(row);
  }
  check(reader->Finish());
}

std::string joined(const google::protobuf::RepeatedPtrField<std::string>& names) {
  std::string all;
  for (const std::string& name : names) all += (all.empty() ? "" : ",") + name;
  return all;
}

}  // namespace

void listTables(const Options& options, Tools::Output& out) {
  Client client(options.socket);
  RecordWriter records(
      out, options.output,
      {text("name", 18), number("rows", 9), number("capacity", 9), number("oldestChange", 12),
       number("latestChange", 12), text("key", 24), text("rowType", 38), text("path", 45)});
  for (const v1::Table& table : client.tables()) {
    records << table.name() << table.size();
    table.capacity() != 0 ? records << table.capacity() : records << absent;
    records << table.oldest_change_index() << table.latest_change_index()
            << joined(table.key_columns()) << table.row_type();
    table.path().empty() ? records << absent : records << table.path();
    records.endRecord();
  }
  records.finish();
}

// The columns of a table's rows: a record for each.
void describeTable(const Options& options, Tools::Output& out) {
  Client client(options.socket);
  const v1::Table table = client.describe(options.table);
  Vane::RowMetadata metadata;
  metadata.typeName = table.row_type();
  metadata.signature = table.signature();
  metadata.keyColumns = {table.key_columns().begin(), table.key_columns().end()};
  metadata.baseRowLength = static_cast<uint16_t>(table.fixed_length());
  RecordWriter records(
      out, options.output,
      {text("column", 20), text("type", 12), Tools::truth("key"), number("offset", 6)});
  const Vane::RowLayout layout(metadata);
  for (const auto& column : layout.columns()) {
    records << column.name << Vane::wordOf(column.type) << column.isKey << column.offset;
    records.endRecord();
  }
  records.finish();
}

void getRow(const Options& options, Tools::Output& out) {
  Client client(options.socket);
  const RowForm form(client.describe(options.table));
  v1::GetRowRequest request;
  request.set_table(options.table);
  *request.mutable_key() = form.key(options.key);
  const v1::Row row = client.call(&v1::RowDatabase::Stub::GetRow, request);
  RecordWriter records(out, options.output, form.columns());
  form.write(row, records);
  records.finish();
}

void scanRows(const Options& options, Tools::Output& out) {
  Client client(options.socket);
  const RowForm form(client.describe(options.table));
  v1::ScanRowsRequest request;
  request.set_table(options.table);
  if (options.after) *request.mutable_after() = form.key(*options.after);
  RecordWriter records(out, options.output, form.columns());
  if (options.limit != 0u) {
    request.set_limit(options.limit.value_or(0));
    scan(client, request, [&](const v1::Row& row) { form.write(row, records); });
  }
  records.finish();
}

void dumpTables(const Options& options, Tools::Output& out) {
  Client client(options.socket);
  std::vector<v1::Table> tables;
  for (const std::string& name : options.tables) tables.push_back(client.describe(name));
  if (tables.empty()) {
    for (const v1::Table& table : client.tables()) tables.push_back(table);
  }
  // The agent sends packed bytes, and the text is made here: both work at the same time.
  for (const v1::Table& table : tables) {
    const RowForm form(table);
    v1::ScanRowsRequest request;
    request.set_table(table.name());
    const std::string head = fmt::format(R"({{"table":"{}","row":)", table.name());
    std::string line;
    scan(client, request, [&](const v1::Row& row) {
      line = head;
      form.appendJson(line, row);
      out.write(line += "}\n");
    });
  }
}

}  // namespace VaneCtl
