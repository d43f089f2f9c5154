#include "demo_table.h"

#include <algorithm>
#include <cstdio>

namespace pelarix::demo {

namespace {

std::string Fixed(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", value);
  return text;
}

std::string Hex4(uint16_t value) {
  char text[8];
  std::snprintf(text, sizeof text, "%04x", value);
  return text;
}

std::vector<std::string> Cells(const DeviceRow &row) {
  const bool plugged = row.plugNo != 0;
  return {row.name,
          Hex4(row.vendorId) + ":" + Hex4(row.productId),
          std::to_string(row.clientVersion),
          row.decision,
          plugged ? std::to_string(row.plugNo) : "-",
          plugged ? std::to_string(row.items) : "-",
          plugged ? std::to_string(row.bytes) : "-",
          row.storage ? Fixed(row.megabytesPerSecond) : "-",
          row.storage ? Fixed(row.itemsPerSecond) : "-",
          row.check};
}

}  // namespace

void PrintTable(const std::vector<DeviceRow> &rows, std::ostream &out) {
  std::vector<std::vector<std::string>> lines{{"Device", "Id", "Client", "Decision", "PlugNo",
                                               "Items", "Bytes", "MB/s", "Items/s", "Check"}};
  for (const DeviceRow &row : rows) {
    lines.push_back(Cells(row));
  }
  std::vector<size_t> widths(lines[0].size(), 0);
  for (const auto &line : lines) {
    for (size_t column = 0; column < line.size(); ++column) {
      widths[column] = std::max(widths[column], line[column].size());
    }
  }
  for (const auto &line : lines) {
    std::string text;
    for (size_t column = 0; column < line.size(); ++column) {
      const bool last = column + 1 == line.size();
      text += line[column];
      if (!last) {
        text += std::string(widths[column] - line[column].size() + 2, ' ');
      }
    }
    out << text << '\n';
  }
}

}  // namespace pelarix::demo
