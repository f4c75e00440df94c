// Hostile bodies and what a case costs in time and peak memory; shared with bench/.
#ifndef VANTREL_TESTS_SUPPORT_HOSTILE_BODIES_H_
#define VANTREL_TESTS_SUPPORT_HOSTILE_BODIES_H_

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

namespace Vantrel::Auth::testing {

constexpr size_t kMegabyte = 1024 * 1024;

// `unit` repeated `count` times.
inline std::string Repeat(const std::string& unit, size_t count) {
  std::string text;
  text.reserve(unit.size() * count);
  for (size_t i = 0; i < count; ++i) text += unit;
  return text;
}

// `size` bytes of SOAP-like markup without any word the library searches for.
inline std::string Filler(size_t size) {
  static const std::string kPiece =
      "<a:Item Id=\"_1\" xmlns:a=\"urn:x\">text &amp; more\tand more</a:Item>\r\n";
  std::string text = Repeat(kPiece, size / kPiece.size() + 1);
  text.resize(size);
  return text;
}

// A "Vm...:" figure of /proc/self/status in bytes; 0 where it can't be read.
inline size_t StatusBytes(const char* field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  const size_t length = std::strlen(field);
  while (std::getline(status, line)) {
    if (line.compare(0, length, field) == 0) return std::stoul(line.substr(length)) * 1024;
  }
  return 0;
}

// Peak resident memory of the process.
inline size_t PeakResidentBytes() { return StatusBytes("VmHWM:"); }
inline size_t ResidentBytes() { return StatusBytes("VmRSS:"); }

// Lets the next PeakResidentBytes start from what is resident now.
inline void ResetPeakResident() {
  std::FILE* file = std::fopen("/proc/self/clear_refs", "w");
  if (file == nullptr) return;
  std::fputs("5", file);
  std::fclose(file);
}

struct Cost {
  double seconds = 0;
  size_t start_bytes = 0;  // resident memory when the case began
  size_t peak_bytes = 0;   // peak resident memory while the case ran
};

template <typename Case>
Cost Measure(Case run) {
  ResetPeakResident();
  const size_t start_bytes = ResidentBytes();
  auto start = std::chrono::steady_clock::now();
  run();
  Cost cost;
  cost.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  cost.start_bytes = start_bytes;
  cost.peak_bytes = PeakResidentBytes();
  return cost;
}

}  // namespace Vantrel::Auth::testing

#endif  // VANTREL_TESTS_SUPPORT_HOSTILE_BODIES_H_
