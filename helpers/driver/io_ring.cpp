#include "helpers/driver/io_ring.h"

#include "helpers/common/failure.h"

#include <sys/uio.h>

#include <cerrno>

namespace {

constexpr int kRegisteredFile = 0;
constexpr int kRegisteredMemory = 0;

bool register_resources(io_uring& ring, int descriptor, std::span<char> memory)
{
    const iovec whole{memory.data(), memory.size()};
    return ::io_uring_register_files(&ring, &descriptor, 1) == 0 &&
           ::io_uring_register_buffers(&ring, &whole, 1) == 0;
}

} // namespace

std::unique_ptr<IoRing> IoRing::open(int descriptor, std::span<char> memory)
{
    io_uring ring = {};
    if (::io_uring_queue_init(RequestQueue::kMaxDepth, &ring, 0) != 0) {
        return nullptr;
    }
    if (!register_resources(ring, descriptor, memory)) {
        ::io_uring_queue_exit(&ring);
        return nullptr;
    }
    std::unique_ptr<IoRing> result(new IoRing);
    result->ring_ = ring;
    return result;
}

IoRing::~IoRing()
{
    ::io_uring_queue_exit(&ring_);
}

bool IoRing::start(const IoRequest& request)
{
    io_uring_sqe* const entry = ::io_uring_get_sqe(&ring_);
    if (entry == nullptr) {
        return false;
    }
    const auto length = static_cast<unsigned>(request.lengthBytes);
    if (request.access == TargetDevice::Access::Write) {
        ::io_uring_prep_write_fixed(entry, kRegisteredFile, request.memory, length,
                                    request.offsetBytes, kRegisteredMemory);
    } else {
        ::io_uring_prep_read_fixed(entry, kRegisteredFile, request.memory, length,
                                   request.offsetBytes, kRegisteredMemory);
    }
    ::io_uring_sqe_set_flags(entry, IOSQE_FIXED_FILE);
    const std::size_t slot = started_ % results_.size();
    ::io_uring_sqe_set_data64(entry, slot);
    results_.at(slot).reset();
    if (::io_uring_submit(&ring_) != 1) {
        return false;
    }
    ++started_;
    return true;
}

std::optional<ssize_t> IoRing::finishOldest()
{
    __kernel_timespec limit = {};
    limit.tv_sec = kWaitLimit.count();
    const std::optional<ssize_t>& oldest = results_.at(finished_ % results_.size());
    while (!oldest) {
        io_uring_cqe* completion = nullptr;
        const int error = -::io_uring_wait_cqe_timeout(&ring_, &completion, &limit);
        if (error == 0) {
            collect(*completion);
            ::io_uring_cqe_seen(&ring_, completion);
        } else if (error == ETIME) {
            return std::nullopt;
        } else if (error != EINTR && error != EAGAIN) {
            throw system_failure("io_uring", "wait", error);
        }
    }
    ++finished_;
    return oldest;
}

void IoRing::collect(const io_uring_cqe& completion)
{
    results_.at(static_cast<std::size_t>(completion.user_data)) = completion.res;
}
