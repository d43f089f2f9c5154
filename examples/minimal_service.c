/* A minimal redirection service on the pelarix library: it opens a session
 * on the hub, plugs in one device that a client offers (a USB flash drive,
 * by its descriptors), answers the first request the hub sends for it, and
 * unplugs it again.
 *
 * A real service forwards each item to the client that owns the device and
 * completes it with the client's answer, on pump threads that run for the
 * session's life. This one has no client: its device answers every request
 * with the request's own bytes.
 *
 *   build/bin/pelarix-vhubd --dir /tmp/pelarix-hub &
 *   PELARIX_HUB_DIR=/tmp/pelarix-hub PELARIX_REGISTRY=examples/pelarix.reg \
 *     build/bin/pelarix-minimal-service
 */
#include <pelarix.h>
#include <stdio.h>

/* The device as the client sends it: its device descriptor, then its
 * configuration descriptor with all that follows it (44 bytes). */
static const uint8_t kDevice[18] = {0x12, 0x01, 0x20, 0x03, 0x00, 0x00, 0x00, 0x09, 0x81,
                                    0x07, 0x83, 0x55, 0x00, 0x01, 0x01, 0x02, 0x03, 0x01};
static const uint8_t kConfig[44] = {
    0x09, 0x02, 0x2c, 0x00, 0x01, 0x01, 0x00, 0x80, 0x70, 0x09, 0x04, 0x00, 0x00, 0x02, 0x08,
    0x06, 0x50, 0x00, 0x07, 0x05, 0x81, 0x02, 0x00, 0x04, 0x00, 0x06, 0x30, 0x01, 0x00, 0x00,
    0x00, 0x07, 0x05, 0x02, 0x02, 0x00, 0x04, 0x00, 0x06, 0x30, 0x0f, 0x00, 0x00, 0x00};
/* Its strings, which a client of version 4 sends with the device: the
 * language list (string 0: U.S. English), the product name (2) and the
 * serial number (3), each a USB string descriptor in UTF-16LE. */
static const uint8_t kLanguages[4] = {4, 3, 0x09, 0x04};
static const uint8_t kProduct[12] = {12, 3, 'U', 0, 'l', 0, 't', 0, 'r', 0, 'a', 0};
static const uint8_t kSerial[10] = {10, 3, '4', 0, '2', 0, '0', 0, '1', 0};

/* Log text is UTF-16 on every platform (char16_t, or wchar_t on Windows); a
 * terminal wants UTF-8. A message has at most 251 units, 3 bytes each. */
static void ToUtf8(const PelarixChar *text, char *out, size_t room) {
  const char *end = out + room - 5; /* room for a 4-byte sequence and the NUL */
  for (; *text != 0 && out < end; ++text) {
    uint32_t code = (uint16_t)*text;
    uint32_t next = (uint16_t)text[1];
    if (code >= 0xD800 && code < 0xDC00 && next >= 0xDC00 && next < 0xE000) {
      code = 0x10000 + ((code - 0xD800) << 10) + (next - 0xDC00);
      ++text;
    } else if (code >= 0xD800 && code < 0xE000) {
      code = 0xFFFD; /* half a pair */
    }
    if (code < 0x80) {
      *out++ = (char)code;
    } else if (code < 0x800) {
      *out++ = (char)(0xC0 | code >> 6);
      *out++ = (char)(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
      *out++ = (char)(0xE0 | code >> 12);
      *out++ = (char)(0x80 | (code >> 6 & 0x3F));
      *out++ = (char)(0x80 | (code & 0x3F));
    } else {
      *out++ = (char)(0xF0 | code >> 18);
      *out++ = (char)(0x80 | (code >> 12 & 0x3F));
      *out++ = (char)(0x80 | (code >> 6 & 0x3F));
      *out++ = (char)(0x80 | (code & 0x3F));
    }
  }
  *out = 0;
}

/* Called on any thread, several at once: one fputs per line keeps lines
 * whole. Level 0 is a failure; higher levels add detail. */
static void PELARIX_CALL LogSink(uint32_t level, const PelarixChar *message) {
  char line[800];
  char text[768];
  ToUtf8(message, text, sizeof text);
  snprintf(line, sizeof line, "pelarix[%u] %s\n", (unsigned)level, text);
  fputs(line, stderr);
}

static int Succeeded(const char *call, PelarixStatus status) {
  if (status == Pelarix_Success) return 1;
  if (status == Pelarix_DeviceBlocked) {
    printf("the filter refused the device: not plugged in\n");
  } else {
    printf("%s failed with status %u\n", call, (unsigned)status);
  }
  return 0;
}

/* The pump's work for one item: hand it on, complete it, let it go. */
static int AnswerOneItem(PelarixHandle session) {
  PelarixHandle item = NULL;
  PelarixItemInfo info;
  int ok = Succeeded("Pelarix_GetNextItem", Pelarix_GetNextItem(session, &item)) &&
           Succeeded("Pelarix_GetItemInfo", Pelarix_GetItemInfo(item, &info));
  if (ok) {
    printf("item %u: type %u, %u bytes\n", (unsigned)info.itemId, (unsigned)info.type,
           (unsigned)info.dataLength);
    /* Type 0 is a request: a USB request block for the device in data. Types
     * 1 and 2 are notices; type 2, and a request marked so, want no answer. */
    if (info.type != 2 && !info.noCompletion) {
      ok = Succeeded("Pelarix_CompleteItem",
                     Pelarix_CompleteItem(item, 0, info.dataLength, info.data));
    }
  }
  if (item != NULL) Pelarix_CloseHandle(item);
  return ok;
}

int main(void) {
  PelarixHandle session = NULL;
  PelarixHandle device = NULL;
  uint32_t plugNo = 0;
  int ok = 0;
  /* Interface version 2, log levels 0 to 2, item buffers sized at once. */
  if (!Succeeded("Pelarix_InitEx", Pelarix_InitEx(2, LogSink, 2, 0)) ||
      !Succeeded("Pelarix_CreateSession", Pelarix_CreateSession(&session))) {
    return 1;
  }
  /* The agent's filter decides here, from the descriptors and its settings. */
  if (Succeeded("Pelarix_CreateDevice",
                Pelarix_CreateDevice(session, 4, 0, kDevice, kConfig, NULL, NULL, &device)) &&
      Succeeded("Pelarix_AddDeviceString", Pelarix_AddDeviceString(device, 0, 0, kLanguages)) &&
      Succeeded("Pelarix_AddDeviceString", Pelarix_AddDeviceString(device, 2, 0x0409, kProduct)) &&
      Succeeded("Pelarix_AddDeviceString", Pelarix_AddDeviceString(device, 3, 0x0409, kSerial)) &&
      Succeeded("Pelarix_PluginDevice", Pelarix_PluginDevice(device))) {
    Pelarix_GetDeviceId(device, &plugNo);
    printf("device plugged in as %u\n", (unsigned)plugNo);
    ok = AnswerOneItem(session);
    ok = Succeeded("Pelarix_UnplugDevice", Pelarix_UnplugDevice(device)) && ok;
  }
  if (device != NULL) Pelarix_CloseHandle(device);
  Pelarix_CloseHandle(session);
  printf("%s\n", ok ? "done" : "stopped");
  return ok ? 0 : 1;
}
