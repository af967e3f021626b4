#include "platform/linux/rtnetlink.h"

#include <sys/socket.h>
#include <sys/time.h>

namespace {

constexpr timeval LONGEST_WAIT = {2, 0};
/// In bytes: thousands of notifications, while nobody receives them.
constexpr int NOTIFICATION_ROOM = 2 << 20;

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
  for (;;) {
    sockaddr_nl sender = {};
    iovec block = {buffer_, room};
    msghdr header = {};
    header.msg_name = &sender;
    header.msg_namelen = sizeof sender;
    header.msg_iov = &block;
    header.msg_iovlen = 1;
    const ssize_t received = TEMP_FAILURE_RETRY(recvmsg(mnl_socket_get_fd(socket_), &header, 0));
    if (received < 0) return errno;
    if (header.msg_namelen != sizeof sender || sender.nl_pid != 0) continue;
    if ((header.msg_flags & MSG_TRUNC) != 0) return ENOBUFS;
    length = static_cast<std::size_t>(received);
    return 0;
  }
}

bool RtRequests::completes(const nlmsghdr& message, RtOutcome& outcome) {
  if (message.nlmsg_type != NLMSG_ERROR && message.nlmsg_type != NLMSG_DONE) return false;
  // Both begin with an error number, which a short one lacks.
  const int* const number = part_of<int>(message);
  outcome = {number != nullptr ? -*number : 0, true};
  return true;
}

int RtRequests::send(RtRequest& request) {
  if (!is_open()) {
    if (const int error = open(); error != 0) return error;
    static_cast<void>(setsockopt(mnl_socket_get_fd(get()), SOL_SOCKET, SO_RCVTIMEO, &LONGEST_WAIT,
                                 sizeof LONGEST_WAIT));
    // Lets a dump be narrowed to one table; a kernel that cannot shows them all.
    const int on = 1;
    static_cast<void>(
        mnl_socket_setsockopt(get(), NETLINK_GET_STRICT_CHK, const_cast<int*>(&on), sizeof on));
  }
  last_ = {mnl_socket_get_portid(get()), last_.sequence + 1};
  request.message().nlmsg_seq = last_.sequence;
  const auto sent = mnl_socket_sendto(get(), &request.message(), request.message().nlmsg_len);
  return sent >= 0 ? 0 : errno;
}

int RtNotifications::listen() {
  if (const int error = open(SOCK_NONBLOCK, groups_); error != 0) return error;
  const int socket = mnl_socket_get_fd(get());
  // Without the privilege the room is what the system allows.
  const int size = NOTIFICATION_ROOM;
  if (setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) != 0) {
    static_cast<void>(setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &size, sizeof size));
  }
  return 0;
}
