// A HID boot keyboard's function: on its interrupt-in endpoint it reports
// the keys of a fixed text, each as a press report and a release report
// (8 bytes: modifiers, reserved, six key codes), and then idle reports of
// no key.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "usb_function.h"

namespace pelarix::demo {

inline constexpr size_t kKeyboardReportBytes = 8;
inline constexpr uint8_t kLeftShift = 0x02;

// What the demo's keyboards type; the host side checks that it reads it.
inline constexpr const char *kTypedText = "Hello from Pelarix 14";

// The boot-protocol key code and whether shift is down for a character,
// both 0 for a character the keyboard does not have; and the way back.
uint8_t KeyCode(char c, bool *shift);
char KeyChar(uint8_t code, bool shift);
inline constexpr uint8_t kEnterKey = 0x28;

class KeyboardFunction : public UsbFunction {
 public:
  KeyboardFunction(uint8_t interruptIn, std::string text);

  uint32_t Transfer(uint8_t endpoint, const std::vector<uint8_t> &out, uint32_t room,
                    std::vector<uint8_t> *in) override;

 private:
  uint8_t interruptIn_;
  std::vector<std::vector<uint8_t>> reports_;
  size_t next_ = 0;
};

}  // namespace pelarix::demo
