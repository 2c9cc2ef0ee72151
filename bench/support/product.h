#ifndef KESTRAV_BENCH_SUPPORT_PRODUCT_H_
#define KESTRAV_BENCH_SUPPORT_PRODUCT_H_

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "kestrav/engine/kestrav_impl.h"
#include "kestrav/format/log_message.h"
#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/io/mapped_file_stream.h"
#include "kestrav/host/memory/ptr.h"

// How a program is advised to use the library; every benchmark does it this way.

namespace kestrav::bench {

// A new empty message.
inline SmartPtr::Ptr<LogMessage> MakeMessage() { return LogMessage::Create(); }

// What a client does with each of its messages.
inline bool HandOver(KestravImpl& recorder, std::uint16_t client_id, const std::uint8_t* data,
                     std::uint32_t size) {
  auto message = MakeMessage();
  return message->Assign(client_id, 1, data, size, 0) && recorder.WriteData(std::move(message));
}

// Empty: the file cannot be opened.
inline SmartPtr::Ptr<Io::IInputStream> OpenInput(const std::string& path) {
  auto stream = std::make_shared<Io::MappedFileInputStream>();
  return stream->Open(String(path.begin(), path.end())) ? stream : nullptr;
}

// `kInPlace` overwrites an existing file, so that its pages need not be found again.
inline SmartPtr::Ptr<Io::BufferedFileOutputStream> OpenOutput(const std::string& path,
                                                              Io::OpenMode mode) {
  auto stream = std::make_shared<Io::BufferedFileOutputStream>();
  return stream->Open(String(path.begin(), path.end()), mode) ? stream : nullptr;
}

}  // namespace kestrav::bench

#endif  // KESTRAV_BENCH_SUPPORT_PRODUCT_H_
