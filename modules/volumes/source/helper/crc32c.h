#pragma once
// CRC-32C (Castagnoli): the processor's instruction where it has one, a table
// otherwise; both give the same value. Values are fed as their little-endian
// bytes, so a sum taken on one machine equals the sum taken on another.
#include <cstddef>
#include <cstdint>

namespace zelmar {

class Crc32c {
 public:
  // Which form Append uses; the table form can be asked for, to compare.
  enum class FORM { AUTOMATIC, TABLE };

  explicit Crc32c(FORM form = FORM::AUTOMATIC);

  void Append(const void* data, size_t size);
  void AppendUInt64(uint64_t v);
  void AppendUInt32(uint32_t v);
  // The sum of what was appended (the running value with its bits inverted).
  uint32_t Get() const { return ~state_; }

  // Whether this processor has the instruction.
  static bool HasHardware();

 private:
  uint32_t state_ = 0xFFFFFFFFu;
  bool hardware_ = false;
};

}  // namespace zelmar
