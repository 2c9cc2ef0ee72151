#ifndef KESTRAV_TOOLS_LOG_RECORDER_H_
#define KESTRAV_TOOLS_LOG_RECORDER_H_

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "kestrav/clients/client.h"
#include "kestrav/engine/kestrav_impl.h"
#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/memory/ptr.h"
#include "kestrav/host/thread/thread_module.h"

namespace kestrav::tool {

// Records messages of a few clients into a new log. Every failure is thrown as `Failure`.
class LogRecorder {
 public:
  // Creates the file `path`, or empties it; failures call it `name`. `plain`: the records are not
  // scrambled.
  LogRecorder(const std::string& path, const std::string& name, bool plain,
              const Io::FileOutputSettings& settings = {});
  LogRecorder(const LogRecorder&) = delete;
  LogRecorder& operator=(const LogRecorder&) = delete;

  // Before the start: a client that writes. The result stands for it in `Write`.
  std::size_t AddClient(const std::string& name);

  // Returns when the log runs.
  void Start();
  // `payload` must not be empty.
  void Write(std::size_t client, std::uint16_t data_id, std::string_view payload);
  // Fails when the file has refused bytes so far. Only while the recorder's threads rest.
  void CheckWrites() const;
  // Finishes the log, closes the file and makes sure that everything is in it.
  void Finish();

  LoggingCounters Counters() const { return engine_.GetLoggingCounters(); }
  std::uint64_t Records() const { return records_; }
  std::uint64_t PayloadBytes() const { return payload_bytes_; }

 private:
  class Client;

  [[noreturn]] void Fail(const std::string& reason) const;
  void WaitUntilFinished();
  void CheckFile() const;

  const std::string path_;
  const std::string name_;
  std::uint64_t records_ = 0;
  std::uint64_t payload_bytes_ = 0;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool finished_ = false;
  SmartPtr::Ptr<Io::BufferedFileOutputStream> stream_;
  std::vector<std::unique_ptr<IClient>> clients_;
  Thread::ThreadModule threads_;
  KestravImpl engine_;  // goes first: its threads use the others
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_LOG_RECORDER_H_
