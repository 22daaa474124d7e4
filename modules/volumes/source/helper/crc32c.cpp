#include "modules/volumes/source/helper/crc32c.h"

#include <array>
#include <cstring>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <nmmintrin.h>
#define ZELMAR_CRC32C_X86 1
#endif

namespace zelmar {

namespace {

// The reflected Castagnoli polynomial.
constexpr uint32_t kPolynomial = 0x82F63B78u;

constexpr std::array<uint32_t, 256> MakeTable() {
  std::array<uint32_t, 256> table{};
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t c = i;
    for (int k = 0; k < 8; ++k) c = (c & 1u) ? (c >> 1) ^ kPolynomial : c >> 1;
    table[i] = c;
  }
  return table;
}

constexpr std::array<uint32_t, 256> kTable = MakeTable();

uint32_t AppendTable(uint32_t crc, const unsigned char* p, size_t size) {
  for (size_t i = 0; i < size; ++i) crc = kTable[(crc ^ p[i]) & 0xFFu] ^ (crc >> 8);
  return crc;
}

#ifdef ZELMAR_CRC32C_X86
__attribute__((target("sse4.2"))) uint32_t AppendHardware(uint32_t crc, const unsigned char* p, size_t size) {
  uint64_t c = crc;
  while (size >= 8) {
    uint64_t word;
    std::memcpy(&word, p, 8);
    c = _mm_crc32_u64(c, word);
    p += 8;
    size -= 8;
  }
  uint32_t c32 = uint32_t(c);
  while (size > 0) {
    c32 = _mm_crc32_u8(c32, *p++);
    --size;
  }
  return c32;
}
#endif

}  // namespace

bool Crc32c::HasHardware() {
#ifdef ZELMAR_CRC32C_X86
  static const bool has = __builtin_cpu_supports("sse4.2");
  return has;
#else
  return false;
#endif
}

Crc32c::Crc32c(FORM form) : hardware_(form == FORM::AUTOMATIC && HasHardware()) {}

void Crc32c::Append(const void* data, size_t size) {
  const auto* p = static_cast<const unsigned char*>(data);
#ifdef ZELMAR_CRC32C_X86
  if (hardware_) {
    state_ = AppendHardware(state_, p, size);
    return;
  }
#endif
  state_ = AppendTable(state_, p, size);
}

void Crc32c::AppendUInt64(uint64_t v) {
  unsigned char bytes[8];
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<unsigned char>(v >> (8 * i));
  Append(bytes, sizeof(bytes));
}

void Crc32c::AppendUInt32(uint32_t v) {
  unsigned char bytes[4];
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<unsigned char>(v >> (8 * i));
  Append(bytes, sizeof(bytes));
}

}  // namespace zelmar
