#include "Shelf.h"

#include <array>
#include <cstring>

#include <sys/socket.h>
#include <sys/uio.h>

namespace watch {

namespace {

/// One byte, and room for one descriptor beside it (unix(7), SCM_RIGHTS).
struct Message {
    Message() {
        header.msg_iov = &part;
        header.msg_iovlen = 1;
        header.msg_control = control.data();
        header.msg_controllen = control.size();
    }
    char byte = 0;
    iovec part = {&byte, 1};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control = {};
    msghdr header = {};
};

} // namespace

bool Shelf::put(int fd) {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) != 0) {
        return false;
    }
    m_from.reset(ends[0]);
    m_to.reset(ends[1]);
    Message message;
    cmsghdr* head = CMSG_FIRSTHDR(&message.header);
    head->cmsg_level = SOL_SOCKET;
    head->cmsg_type = SCM_RIGHTS;
    head->cmsg_len = CMSG_LEN(sizeof fd);
    std::memcpy(CMSG_DATA(head), &fd, sizeof fd);
    return ::sendmsg(m_from.get(), &message.header, 0) == 1;
}

UniqueFd Shelf::take() {
    Message message;
    if (!m_to || ::recvmsg(m_to.get(), &message.header, MSG_CMSG_CLOEXEC) != 1) {
        return {};
    }
    const cmsghdr* head = CMSG_FIRSTHDR(&message.header);
    if (head == nullptr || head->cmsg_type != SCM_RIGHTS) {
        return {};
    }
    int fd = -1;
    std::memcpy(&fd, CMSG_DATA(head), sizeof fd);
    return UniqueFd(fd);
}

} // namespace watch
