// Items per second through the library (Pelarix_GetNextItem,
// Pelarix_CompleteItem, Pelarix_CloseHandle) against the bare protocol doing
// the same requests on a raw socket with no library, both against an
// in-process virtual hub; and heap allocations per item on the pump's thread.
#include <benchmark/benchmark.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench_hub.h"
#include "hub/hub_control_codes.h"
#include "hub/hub_records.h"
#include "pelarix.h"

// Heap allocations of the threads that count them (the pumps), whatever
// allocates: the library's malloc/calloc and operator new alike.
namespace {
thread_local bool tCounting = false;
std::atomic<uint64_t> gAllocations{0};
}  // namespace

extern "C" void *__libc_malloc(size_t);
extern "C" void *__libc_calloc(size_t, size_t);
extern "C" void *__libc_realloc(void *, size_t);
extern "C" void *malloc(size_t size) {
  if (tCounting) gAllocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}
extern "C" void *calloc(size_t count, size_t size) {
  if (tCounting) gAllocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_calloc(count, size);
}
extern "C" void *realloc(void *pointer, size_t size) {
  if (tCounting) gAllocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_realloc(pointer, size);
}

namespace {

using namespace pelarix;

constexpr uint32_t kPlugNo = 1;

using HubUnderTest = bench::BenchHub;

void QueueItem(vhub::HubModel &model, uint32_t size) {
  vhub::ItemSpec raised;
  raised.plugNo = kPlugNo;
  raised.data.assign(size, 0x5A);
  model.QueueItem(raised);
}

// --- the library ------------------------------------------------------------

struct LibraryRig {
  HubUnderTest hub;
  PelarixHandle session = nullptr;
  PelarixHandle device = nullptr;
  bool ready = false;

  LibraryRig() {
    ::setenv("PELARIX_REGISTRY", "/nonexistent/registry.reg", 1);
    if (!hub.Started() || Pelarix_CreateSession(&session) != Pelarix_Success) return;
    static const uint8_t kDevice[18] = {0x12, 1, 0, 2, 0, 0, 0, 0x40, 0x0f,
                                        0x0e, 1, 0, 0, 1, 0, 0, 0,    1};
    static const uint8_t kConfig[34] = {9,    2,    34, 0, 1, 1,    0, 0xa0, 0x32, 9, 4, 0,
                                        0,    1,    3,  1, 1, 0,    9, 0x21, 0x11, 1, 0, 1,
                                        0x22, 0x3f, 0,  7, 5, 0x81, 3, 8,    0,    10};
    ready = Pelarix_CreateDevice(session, 4, 0, kDevice, kConfig, nullptr, nullptr, &device) ==
                Pelarix_Success &&
            Pelarix_PluginDevice(device) == Pelarix_Success;
  }
  ~LibraryRig() {
    Pelarix_CloseHandle(device);
    Pelarix_CloseHandle(session);
  }
};

LibraryRig *gLibraryRig = nullptr;

void BM_Library(benchmark::State &state) {
  const auto size = static_cast<uint32_t>(state.range(0));
  if (state.thread_index() == 0) {
    gLibraryRig = new LibraryRig;
    gAllocations = 0;
  }
  std::vector<uint8_t> answer(size, 0xA5);
  for (auto _ : state) {
    if (!gLibraryRig->ready) {
      state.SkipWithError("no hub");
      break;
    }
    QueueItem(gLibraryRig->hub.Model(), size);
    tCounting = true;
    PelarixHandle item = nullptr;
    Pelarix_GetNextItem(gLibraryRig->session, &item);
    Pelarix_CompleteItem(item, 0, size, answer.data());
    Pelarix_CloseHandle(item);
    tCounting = false;
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(state.iterations() * int64_t{size} * 2);
  if (state.thread_index() == 0) {
    state.counters["allocs/item"] = static_cast<double>(gAllocations.load()) /
                                    static_cast<double>(state.iterations() * state.threads());
    delete gLibraryRig;
    gLibraryRig = nullptr;
  }
}

// --- the bare protocol --------------------------------------------------------

// The hub's socket protocol by hand: a frame with a fresh reply pair, the
// answer read back; nothing of the library.
class RawClient {
 public:
  explicit RawClient(const std::string &path) {
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size());
    uint8_t status[4];
    ok_ = connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
          ReadAll(fd_, status, 4) && status[0] == 0;
    event_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    uint64_t value = static_cast<uint64_t>(event_);
    uint32_t returned = 0;
    ok_ = ok_ &&
          Request(IOCTL_HUB_SET_NOTIFICATION_EVENT, &value, 8, nullptr, 0, &returned, event_) == 0;
  }
  ~RawClient() {
    close(fd_);
    close(event_);
  }
  bool Ok() const { return ok_; }

  void WaitForItem() const {
    pollfd ready{event_, POLLIN, 0};
    poll(&ready, 1, -1);
  }

  uint32_t Request(uint32_t code, const void *input, uint32_t inputLength, void *output,
                   uint32_t outputLength, uint32_t *returned, int attach = -1) {
    int pair[2];
    socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair);
    uint32_t header[4] = {0x51524850, code, inputLength, outputLength};
    iovec parts[2] = {{header, sizeof header}, {const_cast<void *>(input), inputLength}};
    alignas(cmsghdr) char control[CMSG_SPACE(2 * sizeof(int))] = {};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = inputLength > 0 ? 2 : 1;
    message.msg_control = control;
    const int count = attach >= 0 ? 2 : 1;
    message.msg_controllen = CMSG_SPACE(count * sizeof(int));
    cmsghdr *rights = CMSG_FIRSTHDR(&message);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(count * sizeof(int));
    int fds[2] = {pair[1], attach};
    std::memcpy(CMSG_DATA(rights), fds, count * sizeof(int));
    size_t total = sizeof header + inputLength;
    ssize_t sent = sendmsg(fd_, &message, MSG_NOSIGNAL);
    // The rest of a long frame, without the descriptors.
    const auto *bytes = static_cast<const uint8_t *>(input);
    for (size_t done = sent > 0 ? static_cast<size_t>(sent) : total; done < total;) {
      ssize_t more = send(fd_, bytes + (done - sizeof header), total - done, MSG_NOSIGNAL);
      if (more <= 0) break;
      done += static_cast<size_t>(more);
    }
    close(pair[1]);
    uint32_t answer[4] = {};
    uint32_t error = 1167;
    if (ReadAll(pair[0], answer, sizeof answer) && ReadAll(pair[0], output, answer[3])) {
      error = answer[2];
      *returned = answer[3];
    }
    close(pair[0]);
    return error;
  }

 private:
  static bool ReadAll(int fd, void *buffer, size_t length) {
    auto *at = static_cast<uint8_t *>(buffer);
    while (length > 0) {
      ssize_t got = read(fd, at, length);
      if (got <= 0) return false;
      at += got;
      length -= static_cast<size_t>(got);
    }
    return true;
  }

  int fd_ = -1;
  int event_ = -1;
  bool ok_ = false;
};

void BM_BareProtocol(benchmark::State &state) {
  const auto size = static_cast<uint32_t>(state.range(0));
  HubUnderTest hub;
  RawClient client(hub.SocketPath());
  if (!hub.Started() || !client.Ok()) {
    state.SkipWithError("no hub");
    return;
  }
  constexpr uint32_t kExpected = 552;  // the library's default first request
  std::vector<uint8_t> record(kExpected);
  std::vector<uint8_t> complete(12 + size, 0xA5);
  for (auto _ : state) {
    QueueItem(hub.Model(), size);
    client.WaitForItem();
    uint32_t received = 0;
    client.Request(IOCTL_HUB_GET_ITEM, nullptr, 0, record.data(), kExpected, &received);
    HubItemRecord header = ReadHubItemRecord(record.data());
    if (header.dataLength + 40 > received) {
      std::vector<uint8_t> whole(header.dataLength + 40);
      std::memcpy(whole.data(), record.data(), 40);
      client.Request(IOCTL_HUB_GET_ITEM_BUFFER, nullptr, 0, whole.data() + 40,
                     header.dataLength + 40, &received);
    }
    WriteHubCompleteRecord(complete.data(), header.itemId, 0, nullptr, size);
    client.Request(IOCTL_HUB_COMPLETE_ITEM, complete.data(), static_cast<uint32_t>(complete.size()),
                   nullptr, 0, &received);
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(state.iterations() * int64_t{size} * 2);
}

BENCHMARK(BM_BareProtocol)->Arg(0)->Arg(512)->Arg(16384)->Arg(65536)->UseRealTime();
BENCHMARK(BM_Library)->Arg(0)->Arg(512)->Arg(16384)->Arg(65536)->UseRealTime();
BENCHMARK(BM_Library)->Arg(512)->Threads(2)->Threads(4)->UseRealTime();

}  // namespace
