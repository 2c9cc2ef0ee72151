#include <algorithm>
#include <cctype>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <system_error>

#include "client_table.h"
#include "exit_codes.h"
#include "exporter.h"

namespace kestrav::tool {
namespace {

namespace fs = std::filesystem;

// For file systems that do not tell upper from lower case.
std::string Folded(std::string name) {
  for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return name;
}

// A folder that is made when it is not there, and goes again when nothing comes into it.
class TableFolder {
 public:
  explicit TableFolder(const std::string& path) : path_(path) {
    if (path.empty()) throw Failure("the name of the folder is empty", kWrongUsage);
    std::error_code error;
    made_ = fs::create_directories(path_, error);
    if (error) throw Failure(path + ": " + error.message());
  }
  ~TableFolder() {
    std::error_code ignored;
    if (made_) fs::remove(path_, ignored);  // which fails unless it is empty
  }
  TableFolder(const TableFolder&) = delete;
  TableFolder& operator=(const TableFolder&) = delete;

  std::string File(const std::string& name) const { return (path_ / (name + ".csv")).string(); }

 private:
  const fs::path path_;
  bool made_ = false;
};

class TableExporter final : public Exporter {
 public:
  explicit TableExporter(const ExportContext& context)
      : context_(context), clock_(context.header), folder_(context.folder) {}

  void Add(const RecordView& record, std::string& /*out*/) override {
    if (record.client_id == kInfoClientId) return;
    if (!TableOf(record.client_id).Add(record)) LeaveOut(record);
  }

  void Pass(const RecordView& record) override {
    if (record.client_id != kInfoClientId) TableOf(record.client_id).Pass(record);
  }

  void Finish(std::string& /*out*/) override {
    for (auto& [id, table] : tables_) table.Finish();
    for (auto& [id, table] : tables_) table.Commit();
  }

 private:
  ClientTable& TableOf(std::uint16_t id) {
    constexpr std::size_t kMostTables = 128;  // twice the clients that can be recorded
    const auto found = tables_.find(id);
    if (found != tables_.end()) return found->second;
    if (tables_.size() == kMostTables) {
      throw Failure(context_.log + ": more than " + std::to_string(kMostTables) +
                    " clients; name some with --client");
    }
    return tables_.try_emplace(id, folder_.File(FileName(id)), context_.log, clock_).first->second;
  }

  // Of the client's name what is harmless in a file's; with the id when that is not all, or not
  // enough to tell it from others.
  std::string FileName(std::uint16_t id) {
    constexpr std::size_t kLongest = 50;
    const std::string* const client = context_.names.Find(id);
    std::string name = client != nullptr ? client->substr(0, kLongest) : "client";
    const auto is_harmless = [](unsigned char c) {
      return c < 0x80 && (std::isalnum(c) != 0 || c == '-' || c == '_');
    };
    std::replace_if(name.begin(), name.end(), std::not_fn(is_harmless), '_');
    if (client == nullptr || name != *client) name += "-" + std::to_string(id);
    while (!names_.insert(Folded(name)).second) name += "-" + std::to_string(id);
    return name;
  }

  const ExportContext& context_;
  const LogClock clock_;
  const TableFolder folder_;
  std::map<std::uint16_t, ClientTable> tables_;
  std::set<std::string> names_;  // of files, folded
};

}  // namespace

ExporterPtr MakeTableExporter(const ExportContext& context) {
  return std::make_unique<TableExporter>(context);
}

}  // namespace kestrav::tool
