#include <algorithm>
#include <span>
#include <string_view>
#include <utility>

#include "kestrav/clients/dictionary_record.h"
#include "kestrav/host/memory/byte_order.h"
#include "log_index.h"

// An index as bytes, little-endian throughout, and back.

namespace kestrav::tool {
namespace {

constexpr std::uint32_t kVersion = 1;

std::span<const std::uint8_t> Bytes(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

class ByteWriter {
 public:
  template <class T>
  void Put(T value) {
    std::uint8_t bytes[sizeof(T)];
    Memory::PutLittleEndian(bytes, value);
    Put(std::span<const std::uint8_t>(bytes));
  }
  void Put(std::span<const std::uint8_t> bytes) { text_.append(bytes.begin(), bytes.end()); }
  void PutCount(std::size_t count) { Put(static_cast<std::uint32_t>(count)); }

  std::string Finish() {
    Put(AddToSum(kEmptySum, Bytes(text_)));
    return std::move(text_);
  }

 private:
  std::string text_;
};

// Takes values off the front. What is not there reads as 0, and the end is then not where it should
// be.
class ByteReader {
 public:
  explicit ByteReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  std::span<const std::uint8_t> Take(std::size_t size) {
    good_ = good_ && size <= bytes_.size();
    if (!good_) return {};
    const auto taken = bytes_.first(size);
    bytes_ = bytes_.subspan(size);
    return taken;
  }
  template <class T>
  T Get() {
    const auto bytes = Take(sizeof(T));
    return bytes.empty() ? T{} : Memory::GetLittleEndian<T>(bytes.data());
  }
  // How many entries follow; 0 when they cannot all be there.
  std::uint32_t GetCount(std::size_t entry_size) {
    const auto count = Get<std::uint32_t>();
    good_ = good_ && std::uint64_t{count} * entry_size <= bytes_.size();
    return good_ ? count : 0;
  }

  bool IsGood() const { return good_; }
  bool IsAtEnd() const { return good_ && bytes_.empty(); }

 private:
  std::span<const std::uint8_t> bytes_;
  bool good_ = true;
};

void Put(ByteWriter& out, const LogIdentity& identity) {
  out.Put(identity.size);
  out.Put(identity.modified_ns);
  out.Put(std::span<const std::uint8_t>(identity.header));
  out.Put(identity.samples);
}

LogIdentity GetIdentity(ByteReader& in) {
  LogIdentity identity;
  identity.size = in.Get<std::uint64_t>();
  identity.modified_ns = in.Get<std::int64_t>();
  std::ranges::copy(in.Take(kStreamHeaderSize), identity.header.begin());
  identity.samples = in.Get<std::uint64_t>();
  return identity;
}

void Put(ByteWriter& out, const Damage& damage) {
  for (const std::uint64_t count :
       {damage.places, damage.skipped_bytes, damage.missing_records, damage.misplaced_records,
        damage.trailing_bytes, damage.cut_bytes}) {
    out.Put(count);
  }
}

Damage GetDamage(ByteReader& in) {
  Damage damage;
  for (std::uint64_t* const count :
       {&damage.places, &damage.skipped_bytes, &damage.missing_records, &damage.misplaced_records,
        &damage.trailing_bytes, &damage.cut_bytes}) {
    *count = in.Get<std::uint64_t>();
  }
  return damage;
}

void Put(ByteWriter& out, const ClientNames& names) {
  out.PutCount(names.Ids().size());
  for (const auto& [name, id] : names.Ids()) {
    out.Put(id);
    out.PutCount(name.size());
    out.Put(Bytes(name));
  }
}

ClientNames GetNames(ByteReader& in) {
  Dictionary names;
  for (std::uint32_t left = in.GetCount(6); left > 0; --left) {
    const auto id = in.Get<std::uint16_t>();
    const auto name = in.Take(in.Get<std::uint32_t>());
    names.emplace(String(name.begin(), name.end()), id);
  }
  return ClientNames(names);
}

void Put(ByteWriter& out, const std::map<std::uint16_t, ClientStatistics>& clients) {
  out.PutCount(clients.size());
  for (const auto& [id, client] : clients) {
    out.Put(id);
    out.Put(client.records);
    out.Put(client.bytes);
    out.Put(client.first_time_stamp);
    out.Put(client.last_time_stamp);
    out.Put(client.longest_gap_ms);
  }
}

std::map<std::uint16_t, ClientStatistics> GetClients(ByteReader& in) {
  std::map<std::uint16_t, ClientStatistics> clients;
  for (std::uint32_t left = in.GetCount(30); left > 0; --left) {
    ClientStatistics& client = clients[in.Get<std::uint16_t>()];
    client.records = in.Get<std::uint64_t>();
    client.bytes = in.Get<std::uint64_t>();
    client.first_time_stamp = in.Get<std::uint32_t>();
    client.last_time_stamp = in.Get<std::uint32_t>();
    client.longest_gap_ms = in.Get<std::uint32_t>();
  }
  return clients;
}

void Put(ByteWriter& out, const IndexBlock& block) {
  out.Put(block.offset);
  out.Put(block.first_record);
  out.Put(block.first_index);
  out.Put(block.records);
  out.Put(block.earliest_ms);
  out.Put(block.latest_ms);
  out.Put(static_cast<std::uint8_t>(block.orderly ? 1 : 0));
  out.PutCount(block.clients.size());
  for (const auto& [id, records] : block.clients) {
    out.Put(id);
    out.Put(records);
  }
}

IndexBlock GetBlock(ByteReader& in) {
  IndexBlock block;
  block.offset = in.Get<std::uint32_t>();
  block.first_record = in.Get<std::uint64_t>();
  block.first_index = in.Get<std::uint32_t>();
  block.records = in.Get<std::uint32_t>();
  block.earliest_ms = in.Get<std::uint32_t>();
  block.latest_ms = in.Get<std::uint32_t>();
  block.orderly = in.Get<std::uint8_t>() != 0;
  for (std::uint32_t left = in.GetCount(6); left > 0; --left) {
    const auto id = in.Get<std::uint16_t>();
    block.clients[id] = in.Get<std::uint32_t>();
  }
  return block;
}

}  // namespace

std::string IndexBytes(const LogIdentity& identity, const LogIndex& index) {
  ByteWriter out;
  out.Put(Bytes(kIndexMagic));
  out.Put(kVersion);
  Put(out, identity);
  out.Put(index.scan.records);
  out.Put(static_cast<std::uint32_t>(index.scan.end));
  Put(out, index.scan.damage);
  Put(out, index.scan.names);
  Put(out, index.scan.clients);
  out.PutCount(index.blocks.size());
  for (const IndexBlock& block : index.blocks) Put(out, block);
  return out.Finish();
}

std::optional<LogIndex> ParseIndex(const std::string& bytes, const LogIdentity& identity) {
  constexpr std::size_t kSumSize = 8;
  constexpr std::size_t kLeastBlockSize = 33;
  if (bytes.size() < kSumSize) return std::nullopt;
  const std::size_t size = bytes.size() - kSumSize;
  ByteReader sum(Bytes(bytes).last(kSumSize));
  ByteReader in(Bytes(bytes).first(size));
  const bool known = std::ranges::equal(in.Take(kIndexMagic.size()), Bytes(kIndexMagic)) &&
                     in.Get<std::uint32_t>() == kVersion && GetIdentity(in) == identity;
  if (!known) return std::nullopt;
  if (AddToSum(kEmptySum, Bytes(bytes).first(size)) != sum.Get<std::uint64_t>()) {
    return std::nullopt;
  }
  LogIndex index;
  index.scan.records = in.Get<std::uint64_t>();
  index.scan.end = static_cast<ResultCode>(in.Get<std::uint32_t>());
  index.scan.damage = GetDamage(in);
  index.scan.names = GetNames(in);
  index.scan.clients = GetClients(in);
  for (std::uint32_t left = in.GetCount(kLeastBlockSize); left > 0; --left) {
    index.blocks.push_back(GetBlock(in));
  }
  return in.IsAtEnd() ? std::optional(std::move(index)) : std::nullopt;
}

}  // namespace kestrav::tool
