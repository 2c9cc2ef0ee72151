#ifndef KESTRAV_TOOLS_TERMINAL_H_
#define KESTRAV_TOOLS_TERMINAL_H_

// The terminal as a keyboard: keys come without a line end and are not echoed. It is put back as it
// was at the end, after a signal too.

namespace kestrav::tool {

bool IsOutputTerminal();  // whether standard output is one

// At most one object at a time.
class Terminal {
 public:
  static constexpr int kNoKey = 0;
  static constexpr int kInterrupt = -1;  // Ctrl-C, or a request to terminate

  Terminal();
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // Whether there is a person at it: standard input and standard error are a terminal.
  bool IsInteractive() const { return interactive_; }

  // Waits for a key, at most `timeout_ms` (negative: no limit). kNoKey: the time is up, or `Wake`.
  int WaitForKey(int timeout_ms);

  // Ends the wait; may be called from any thread.
  void Wake();

 private:
  const bool interactive_;
  bool input_open_;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_TERMINAL_H_
