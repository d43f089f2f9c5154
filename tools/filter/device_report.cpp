#include "device_report.h"

#include <cstdarg>
#include <cstdio>

#include "ordo/usb/dev_filter_device.h"
#include "ordo/usb/filter_log.h"

namespace pelarix::tools {
namespace {

using ordo::usb::DevFilterDevice;
using ordo::usb::DevFilterResult;

constexpr const char *kFilterPrefix = "DevFltr: ";

// The lines of the device record's own dump, which the report shows as
// identity and families instead.
constexpr const char *kRecordDumpFronts[] = {
    "Device Filter got device:", "Device id: Vid-", "Path: ", "Config count: ", "Config num: ",
    "Interface count: ",         "Interface [",
};

struct CaughtLog {
  std::vector<std::string> filter;
  std::vector<std::string> model;
};

CaughtLog *caught = nullptr;

void CatchLine(uint32_t /*level*/, const char *format, va_list args) {
  if (caught == nullptr) {
    return;
  }
  char line[4096];
  std::vsnprintf(line, sizeof line, format, args);
  const std::string text = line;
  if (text.rfind(kFilterPrefix, 0) == 0) {
    caught->filter.push_back(text.substr(std::char_traits<char>::length(kFilterPrefix)));
    return;
  }
  // A hex block of the dump comes as one text of several lines.
  size_t begin = 0;
  for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
    caught->model.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  if (begin < text.size()) {
    caught->model.push_back(text.substr(begin));
  }
}

bool IsRecordDump(const std::string &line) {
  for (const char *front : kRecordDumpFronts) {
    if (line.rfind(front, 0) == 0) {
      return true;
    }
  }
  return false;
}

// Identity, families and groups from a device record of its own, loaded
// without a log.
void Describe(const DeviceInput &input, DeviceReport &report) {
  ordo::usb::SetFilterLogHook(nullptr, 0);
  DevFilterDevice device;
  device.Load(input.bytes.data(), input.bytes.data() + 18, input.configCount,
              input.path ? &*input.path : nullptr);
  report.id = device.GetIdString();
  report.path = device.GetPathString();
  report.configurations = device.GetParsedConfigCount();
  report.composite = device.IsComposite();
  report.families = ordo::usb::FamilyToString(device.GetDeviceFamily());
  for (int32_t i = 0; i < device.GetInterfaceCount(); ++i) {
    const auto index = static_cast<uint32_t>(i);
    report.interfaces.push_back({i, ordo::usb::FamilyToString(device.GetInterfaceFamily(index)),
                                 device.GetInterfaceGroup(index)});
  }
}

std::string Decision(DevFilterResult &result) {
  if (!result.IsDeviceAllowed()) {
    return "keep local";
  }
  return result.IsSplit() ? "forward split" : "forward whole";
}

template <typename Items>
std::string Joined(const Items &items, const char *separator) {
  std::string text;
  for (const auto &item : items) {
    if (!text.empty()) {
      text += separator;
    }
    text += std::to_string(item);
  }
  return text;
}

std::string JsonText(const std::string &text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", c);
      out += escape;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

std::string JsonTexts(const std::vector<std::string> &texts) {
  std::string out = "[";
  for (size_t i = 0; i < texts.size(); ++i) {
    out += (i == 0 ? "" : ", ") + JsonText(texts[i]);
  }
  return out + "]";
}

void WriteJsonDevice(std::ostream &out, const DeviceReport &r) {
  out << "  {\"device\": " << JsonText(r.name);
  if (!r.error.empty()) {
    out << ", \"error\": " << JsonText(r.error) << "}";
    return;
  }
  out << ", \"id\": " << JsonText(r.id) << ", \"path\": " << JsonText(r.path)
      << ", \"configurations\": " << r.configurations
      << ", \"composite\": " << (r.composite ? "true" : "false")
      << ", \"families\": " << JsonText(r.families) << ",\n   \"interfaces\": [";
  for (size_t i = 0; i < r.interfaces.size(); ++i) {
    const InterfaceReport &one = r.interfaces[i];
    out << (i == 0 ? "" : ", ") << "{\"index\": " << one.index
        << ", \"families\": " << JsonText(one.families) << ", \"group\": ["
        << Joined(one.group, ", ") << "]}";
  }
  out << "],\n   \"decision\": " << JsonText(r.decision) << ", \"forwarded\": ["
      << Joined(r.forwarded, ", ") << "],\n   \"reasons\": " << JsonTexts(r.reasons);
  if (!r.dump.empty()) {
    out << ",\n   \"dump\": " << JsonTexts(r.dump);
  }
  out << "}";
}

}  // namespace

DeviceReport EvaluateInput(ordo::usb::DevFilterMgrClient &client, const DeviceInput &input,
                           bool withDump) {
  DeviceReport report;
  report.name = input.name;
  if (!input.error.empty()) {
    report.error = input.error;
    return report;
  }
  Describe(input, report);
  CaughtLog log;
  caught = &log;
  ordo::usb::SetFilterLogHook(CatchLine, 0);
  DevFilterResult result;
  client.EvaluateDevice(input.bytes.data(), input.bytes.data() + 18, input.configCount,
                        input.path ? &*input.path : nullptr, result);
  ordo::usb::SetFilterLogHook(nullptr, 0);
  caught = nullptr;
  report.decision = Decision(result);
  if (result.IsDeviceAllowed() && result.IsSplit()) {
    report.forwarded = result.GetAllowedInterfaces();
  }
  for (const std::string &line : log.filter) {
    if (!IsRecordDump(line)) {
      report.reasons.push_back(line);
    }
  }
  if (withDump) {
    report.dump = log.model;
  }
  return report;
}

void WriteText(std::ostream &out, const DeviceReport &r) {
  out << "Device: " << r.name << "\n";
  if (!r.error.empty()) {
    out << "  Error: " << r.error << "\n";
    return;
  }
  out << "  Id: " << r.id << "\n  Path: " << r.path << "\n  Configurations: " << r.configurations
      << (r.composite ? ", composite" : "") << "\n  Families: " << r.families << "\n";
  for (const InterfaceReport &one : r.interfaces) {
    out << "  Interface " << one.index << ": " << one.families;
    if (one.group.size() > 1) {
      out << " (group " << Joined(one.group, ",") << ")";
    }
    out << "\n";
  }
  out << "  Decision: " << r.decision;
  if (!r.forwarded.empty()) {
    out << ", interfaces " << Joined(r.forwarded, ",");
  }
  out << "\n  Reasons:\n";
  for (const std::string &line : r.reasons) {
    out << "    " << line << "\n";
  }
  if (!r.dump.empty()) {
    out << "  Dump:\n";
    for (const std::string &line : r.dump) {
      out << "    " << line << "\n";
    }
  }
}

void WriteJson(std::ostream &out, const std::vector<DeviceReport> &reports) {
  out << "[\n";
  for (size_t i = 0; i < reports.size(); ++i) {
    WriteJsonDevice(out, reports[i]);
    out << (i + 1 < reports.size() ? ",\n" : "\n");
  }
  out << "]\n";
}

}  // namespace pelarix::tools
