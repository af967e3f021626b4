// Requests to the kernel's rtnetlink interface and its notifications, over libmnl. Functions that
// can fail answer an error number of the system, 0 for success.
#pragma once

#include <libmnl/libmnl.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/not_copied.h"

/// A request in the making: the part that its type calls for, then attributes, in order.
class RtRequest : NotCopied {
 public:
  explicit RtRequest(std::uint16_t type, unsigned flags = 0)
      : message_(mnl_nlmsg_put_header(buffer_)) {
    message_->nlmsg_type = type;
    message_->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
  }

  /// The part that follows the header, zeroed.
  template <typename Part>
  Part& part() {
    return *static_cast<Part*>(mnl_nlmsg_put_extra_header(message_, sizeof(Part)));
  }
  void put(std::uint16_t attribute, std::uint32_t value) {
    mnl_attr_put_u32(message_, attribute, value);
  }
  /// Attributes put before the nest ends are in it.
  nlattr* begin_nest(std::uint16_t attribute) { return mnl_attr_nest_start(message_, attribute); }
  void end_nest(nlattr* nest) { mnl_attr_nest_end(message_, nest); }

  nlmsghdr& message() { return *message_; }

 private:
  alignas(nlmsghdr) char buffer_[256];
  nlmsghdr* message_;
};

/// The attributes of a block by their types up to MAX; null where there is none.
template <std::size_t MAX>
using RtAttributes = std::array<const nlattr*, MAX + 1>;

template <std::size_t MAX>
[[nodiscard]] RtAttributes<MAX> attributes_in(const void* block, std::size_t size) {
  // By hand: each of a hundred thousand addresses has eight of them.
  RtAttributes<MAX> found{};
  const auto* at = static_cast<const char*>(block);
  while (size >= sizeof(nlattr)) {
    const auto& attribute = *reinterpret_cast<const nlattr*>(at);
    if (attribute.nla_len < sizeof attribute || attribute.nla_len > size) break;
    const unsigned type = attribute.nla_type & static_cast<unsigned>(NLA_TYPE_MASK);
    if (type < found.size()) found[type] = &attribute;
    const std::size_t step = std::min<std::size_t>(MNL_ALIGN(attribute.nla_len), size);
    at += step;
    size -= step;
  }
  return found;
}

/// The part of a message that its type calls for; null when the message is too short for one.
template <typename Part>
[[nodiscard]] const Part* part_of(const nlmsghdr& message) {
  if (mnl_nlmsg_get_payload_len(&message) < sizeof(Part)) return nullptr;
  return static_cast<const Part*>(mnl_nlmsg_get_payload(&message));
}

/// The attributes behind the part of a message that has one.
template <std::size_t MAX, typename Part>
[[nodiscard]] RtAttributes<MAX> attributes_of(const nlmsghdr& message) {
  const auto* block =
      static_cast<const char*>(mnl_nlmsg_get_payload_offset(&message, sizeof(Part)));
  const char* end = static_cast<const char*>(mnl_nlmsg_get_payload_tail(&message));
  return attributes_in<MAX>(block, block < end ? static_cast<std::size_t>(end - block) : 0);
}

template <std::size_t MAX>
[[nodiscard]] RtAttributes<MAX> attributes_in(const nlattr* nest) {
  if (nest == nullptr) return {};
  return attributes_in<MAX>(mnl_attr_get_payload(nest), mnl_attr_get_payload_len(nest));
}

[[nodiscard]] inline std::uint32_t number_in(const nlattr* attribute, std::uint32_t otherwise = 0) {
  if (attribute == nullptr || mnl_attr_get_payload_len(attribute) < sizeof(std::uint32_t)) {
    return otherwise;
  }
  return mnl_attr_get_u32(attribute);
}

/// The text in an attribute, up to its NUL if it has one; empty for none.
[[nodiscard]] inline std::string_view text_in(const nlattr* attribute) {
  if (attribute == nullptr) return {};
  const std::string_view text(static_cast<const char*>(mnl_attr_get_payload(attribute)),
                              mnl_attr_get_payload_len(attribute));
  return text.substr(0, text.find('\0'));
}

/// In bytes. The kernel fills a datagram of a dump up to 32 KB. One message alone may be longer:
/// the alternative names of a link take up to 64 KB, and what else it has a few more.
constexpr std::size_t MAX_DATAGRAM = 131072;

/// A socket with room for one datagram of the kernel.
class RtSocket : NotCopied {
 public:
  ~RtSocket() { close(); }

  [[nodiscard]] bool is_open() const { return socket_ != nullptr; }
  void close();

 protected:
  [[nodiscard]] int open(int flags = 0, unsigned groups = 0);
  [[nodiscard]] mnl_socket* get() const { return socket_; }

  /// Receives one datagram of messages from the kernel, of at most so many bytes, and gives its
  /// length; what others send is passed over. ENOBUFS: messages are lost, or cut short.
  [[nodiscard]] int receive(std::size_t& length, std::size_t room);

  /// Visits the messages of a datagram received; stops when the visit returns false.
  template <typename Visit>
  void for_each_message(std::size_t length, Visit visit) const {
    int left = static_cast<int>(length);
    const auto* message = reinterpret_cast<const nlmsghdr*>(buffer_);
    for (; mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) {
      if (!visit(*message)) return;
    }
  }

 private:
  mnl_socket* socket_ = nullptr;
  alignas(nlmsghdr) char buffer_[MAX_DATAGRAM];
};

/// Who asked for a change: notifications of it tell.
struct RtOrigin {
  std::uint32_t port = 0;
  std::uint32_t sequence = 0;

  bool operator==(const RtOrigin&) const = default;
};

/// What came of a request. Where no answer came, what was asked may have been done all the same.
struct RtOutcome {
  int error = 0;
  bool answered = false;
};

/// Requests, each answered before the next. Opens its socket when it needs it: at first, and after
/// an exchange that was not completed. Waits two seconds at most for what must come at once.
class RtRequests : public RtSocket {
 public:
  /// Sends a request for a dump, or one that is acknowledged after its answer, and visits the
  /// messages that answer it, until the visit returns false. Asks again when an answer is lost, so
  /// that a message may be visited twice. What a dump shows may lack something that changed
  /// meanwhile. The kernel makes the parts of a dump as long as the longest room that the socket
  /// offered.
  template <typename Visit>
  [[nodiscard]] int ask(RtRequest& request, Visit visit, std::size_t room = MAX_DATAGRAM) {
    RtOutcome outcome = exchange(request, visit, room);
    if (!outcome.answered) outcome = exchange(request, visit, room);
    return outcome.error;
  }

  /// Sends a request that changes something, once.
  [[nodiscard]] RtOutcome change(RtRequest& request) {
    request.message().nlmsg_flags |= NLM_F_ACK;
    return exchange(request, [](const nlmsghdr& /*message*/) { return true; });
  }

  /// The last request, as notifications of what it changed name it.
  [[nodiscard]] const RtOrigin& last() const { return last_; }

 private:
  template <typename Visit>
  RtOutcome exchange(RtRequest& request, Visit visit, std::size_t room = MAX_DATAGRAM) {
    RtOutcome outcome;
    bool complete = false;
    // The kernel holds on to what nobody receives, whichever way this ends.
    struct Closer {
      RtSocket& socket;
      const bool& complete;
      ~Closer() {
        if (!complete) socket.close();
      }
    } const closer = {*this, complete};
    outcome.error = send(request);
    while (outcome.error == 0 && !outcome.answered) {
      std::size_t length = 0;
      outcome.error = receive(length, room);
      if (outcome.error != 0) break;
      for_each_message(length, [&](const nlmsghdr& message) {
        if (message.nlmsg_seq != last_.sequence) return true;
        complete = completes(message, outcome);
        if (!complete && !visit(message)) outcome.answered = true;
        return !outcome.answered;
      });
    }
    return outcome;
  }

  /// Whether a message ends the exchange; its outcome is then known.
  static bool completes(const nlmsghdr& message, RtOutcome& outcome);
  [[nodiscard]] int send(RtRequest& request);

  RtOrigin last_;
};

/// Notifications of the groups (a mask of RTMGRP_ bits) that it listens to.
class RtNotifications : public RtSocket {
 public:
  explicit RtNotifications(unsigned groups) : groups_(groups) {}

  [[nodiscard]] int listen();

  /// Visits all notifications that wait. ENOBUFS: an overrun, some are lost.
  template <typename Visit>
  [[nodiscard]] int receive_all(Visit visit) {
    for (;;) {
      std::size_t length = 0;
      const int error = receive(length, MAX_DATAGRAM);
      if (error == EAGAIN) return 0;
      if (error != 0) return ENOBUFS;
      for_each_message(length, [&](const nlmsghdr& message) {
        visit(message);
        return true;
      });
    }
  }

 private:
  unsigned groups_;
};
