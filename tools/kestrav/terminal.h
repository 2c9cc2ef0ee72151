#ifndef KESTRAV_TOOLS_TERMINAL_H_
#define KESTRAV_TOOLS_TERMINAL_H_

namespace kestrav::tool {

bool IsOutputTerminal();  // whether standard output is one
bool IsOutputPipe();      // whether another program reads standard output

// The terminal as a keyboard: keys come without a line end and are not echoed. It is put back as it
// was at the end, after a signal and while the program is stopped. The first interrupt is told to
// the caller, a second one ends the program.
class Terminal {
 public:
  static constexpr int kNoKey = 0;
  static constexpr int kInterrupt = -1;  // Ctrl-C, a request to terminate, the terminal closed

  // `with_keys`: keys are wanted, if there is a person to press them. At most one object at a time.
  explicit Terminal(bool with_keys);
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // Whether keys can come: standard input and standard error are a terminal.
  bool HasKeys() const { return has_keys_; }
  // Whether the terminal is the program's now, and not that of the shell which put it in the
  // background.
  bool IsInteractive() const;
  // Its width, as it is now.
  int Columns() const;

  // Waits for a key, at most `timeout_ms` (negative: no limit). kNoKey: the time is up, or `Wake`.
  int WaitForKey(int timeout_ms);

  // Ends the wait; may be called from any thread.
  void Wake();

 private:
  const bool has_keys_;
  bool input_open_;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_TERMINAL_H_
