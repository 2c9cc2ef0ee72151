#ifndef KESTRAV_BENCH_BASELINE_RECORDER_H_
#define KESTRAV_BENCH_BASELINE_RECORDER_H_

#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "baseline/writer.h"

namespace kestrav::baseline {

// A recorder: any thread hands messages over, one thread writes them. A list of shared pointers
// under a mutex, with a condition variable.
class Recorder {
 public:
  bool Start(const std::string& path, const StreamHeader& header);
  // Stamps and queues the message.
  void Write(std::shared_ptr<Message> message);
  // Returns when everything is written. false: something was not.
  bool Finish();

 private:
  void Run();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::list<std::shared_ptr<Message>> queue_;
  bool stopping_ = false;
  bool good_ = true;  // the thread's own while it runs
  std::uint32_t start_ms_ = 0;
  Writer writer_;
  std::thread thread_;
};

}  // namespace kestrav::baseline

#endif  // KESTRAV_BENCH_BASELINE_RECORDER_H_
