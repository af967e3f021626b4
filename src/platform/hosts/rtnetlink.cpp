#include "platform/hosts/rtnetlink.h"

#include <sys/socket.h>

namespace {

/// The error number that an NLMSG_ERROR or NLMSG_DONE message begins with.
int error_in(const nlmsghdr& message) {
  return -*static_cast<const int*>(mnl_nlmsg_get_payload(&message));
}

}  // namespace

int RtSocket::open(int flags, unsigned groups) {
  close();
  socket_ = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | flags);
  if (socket_ == nullptr) return errno;
  if (mnl_socket_bind(socket_, groups, MNL_SOCKET_AUTOPID) == 0) return 0;
  const int error = errno;
  close();
  return error;
}

void RtSocket::close() {
  if (socket_ != nullptr) mnl_socket_close(socket_);
  socket_ = nullptr;
}

int RtSocket::receive(std::size_t& length, std::size_t room) {
  const ssize_t received = TEMP_FAILURE_RETRY(mnl_socket_recvfrom(socket_, buffer_, room));
  if (received < 0) return errno;
  length = static_cast<std::size_t>(received);
  return 0;
}

bool RtRequests::Reply::take(const nlmsghdr& message) {
  complete = message.nlmsg_type == NLMSG_ERROR || message.nlmsg_type == NLMSG_DONE;
  if (complete) error = error_in(message);
  return complete;
}

int RtRequests::send(RtRequest& request) {
  if (!is_open()) {
    if (const int error = open(); error != 0) return error;
    // Lets a dump be narrowed to one table; a kernel that cannot shows them all.
    const int on = 1;
    static_cast<void>(
        mnl_socket_setsockopt(get(), NETLINK_GET_STRICT_CHK, const_cast<int*>(&on), sizeof on));
  }
  request.message().nlmsg_seq = ++sequence_;
  const auto sent = mnl_socket_sendto(get(), &request.message(), request.message().nlmsg_len);
  return sent >= 0 ? 0 : errno;
}

int RtNews::listen() {
  if (const int error = open(SOCK_NONBLOCK, groups_); error != 0) return error;
  const int socket = mnl_socket_get_fd(get());
  // Room for thousands of news while nobody takes them; without the privilege what the system
  // allows.
  const int size = 2 << 20;
  if (setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) != 0) {
    static_cast<void>(setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &size, sizeof size));
  }
  return 0;
}
