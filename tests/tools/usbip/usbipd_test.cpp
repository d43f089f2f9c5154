#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>

#include "child_process.h"
#include "usbip_client.h"

namespace pelarix::usbip {
namespace {

using pelarix::testing::Child;

// A port no one listens on now.
uint16_t FreePort() {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  bind(fd, reinterpret_cast<sockaddr *>(&address), length);
  getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
  close(fd);
  return ntohs(address.sin_port);
}

TEST(Usbipd, ServesTheHubAndUsbipUntilSigterm) {
  char pattern[] = "/tmp/pelarix-usbipd-XXXXXX";
  ASSERT_NE(mkdtemp(pattern), nullptr);
  const uint16_t port = FreePort();
  const Child child = pelarix::testing::StartChild(
      PELARIX_USBIPD, {"--dir", pattern, "--listen", "127.0.0.1:" + std::to_string(port)});
  std::string log;
  ASSERT_TRUE(pelarix::testing::WaitForLog(child, &log, "serving ", 10000)) << log;
  EXPECT_NE(log.find(" info pelarix-usbipd: usbip: listening on 127.0.0.1:" + std::to_string(port)),
            std::string::npos)
      << log;
  EXPECT_TRUE(std::filesystem::exists(std::string(pattern) + "/hub"));
  UsbipClient client;
  ASSERT_TRUE(client.Connect(port));
  const std::vector<uint8_t> reply = client.List();
  EXPECT_EQ(reply, (std::vector<uint8_t>{0x01, 0x11, 0x00, 0x05, 0, 0, 0, 0, 0, 0, 0, 0}));
  kill(child.pid, SIGTERM);
  std::string rest;
  EXPECT_EQ(pelarix::testing::Finish(child, &rest), 0);
  EXPECT_NE(rest.find("stopping on SIGTERM"), std::string::npos) << rest;
  std::filesystem::remove_all(pattern);
}

TEST(Usbipd, ABadListenAddressIsAUsageError) {
  const Child child =
      pelarix::testing::StartChild(PELARIX_USBIPD, {"--dir", "/tmp/x", "--listen", "localhost:1"});
  std::string log;
  EXPECT_EQ(pelarix::testing::Finish(child, &log), 2);
  EXPECT_EQ(log,
            "pelarix-usbipd: --listen takes ADDR:PORT with an IPv4 address, not localhost:1\n"
            "usage: pelarix-usbipd -d DIR [-n NAME] [--hub-version 0xMMMMmmmm] [-m MODE] [-g "
            "GROUP]\n"
            "                      [--listen ADDR:PORT]\n"
            "Try 'pelarix-usbipd --help' for more.\n");
}

TEST(Usbipd, AnAddressInUseFailsTheStart) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), length), 0);
  ASSERT_EQ(listen(fd, 1), 0);
  getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
  char pattern[] = "/tmp/pelarix-usbipd-XXXXXX";
  ASSERT_NE(mkdtemp(pattern), nullptr);
  const std::string port = std::to_string(ntohs(address.sin_port));
  const Child child = pelarix::testing::StartChild(
      PELARIX_USBIPD, {"--dir", pattern, "--listen", "127.0.0.1:" + port});
  std::string log;
  EXPECT_EQ(pelarix::testing::Finish(child, &log), 1);
  EXPECT_NE(log.find(" error pelarix-usbipd: cannot listen on 127.0.0.1:" + port +
                     ": Address already in use"),
            std::string::npos)
      << log;
  close(fd);
  std::filesystem::remove_all(pattern);
}

}  // namespace
}  // namespace pelarix::usbip
