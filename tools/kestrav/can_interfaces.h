#ifndef KESTRAV_TOOLS_CAN_INTERFACES_H_
#define KESTRAV_TOOLS_CAN_INTERFACES_H_

#include <cstdint>
#include <map>
#include <string>
#include <utility>

namespace kestrav::tool {

// The interfaces that the frames of clients are said to come from.
class CanInterfaces {
 public:
  struct Interface {
    std::uint32_t number = 0;  // in the order of the clients' first frames
    std::string name;
  };

  // `name` is that of all of them; empty: can0, can1 and so on.
  explicit CanInterfaces(std::string name) : name_(std::move(name)) {}

  // `is_new` says whether it is the client's first frame.
  const Interface& Of(std::uint16_t client_id, bool& is_new) {
    const auto number = static_cast<std::uint32_t>(interfaces_.size());
    const auto [found, inserted] = interfaces_.try_emplace(client_id);
    is_new = inserted;
    if (inserted) {
      found->second = {number, name_.empty() ? "can" + std::to_string(number) : name_};
    }
    return found->second;
  }

 private:
  const std::string name_;
  std::map<std::uint16_t, Interface> interfaces_;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_CAN_INTERFACES_H_
