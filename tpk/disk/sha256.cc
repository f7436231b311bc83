#include "tpk/disk/sha256.h"

#include <fmt/format.h>

#include <bit>

namespace quarn::tpk {
namespace {

// The fractional parts of the cube roots of the first 64 primes.
constexpr std::uint32_t kRounds[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

}  // namespace

void Sha256::Add(std::span<const std::byte> bytes) {
  for (const std::byte byte : bytes) {
    block_[size_ % block_.size()] = std::to_integer<std::uint8_t>(byte);
    if (++size_ % block_.size() == 0) TakeBlock();
  }
}

std::string Sha256::Finish() {
  const std::uint64_t bits = size_ * 8;
  Add(std::array{std::byte{0x80}});
  while (size_ % block_.size() != block_.size() - sizeof bits) Add(std::array{std::byte{0}});
  for (int shift = 56; shift >= 0; shift -= 8)
    Add(std::array{static_cast<std::byte>(bits >> shift)});
  std::string digest;
  for (const std::uint32_t word : state_) digest += fmt::format("{:08x}", word);
  return digest;
}

void Sha256::TakeBlock() {
  std::array<std::uint32_t, 64> words;
  for (std::size_t i = 0; i < 16; ++i) {
    words[i] = std::uint32_t{block_[4 * i]} << 24 | std::uint32_t{block_[4 * i + 1]} << 16 |
               std::uint32_t{block_[4 * i + 2]} << 8 | std::uint32_t{block_[4 * i + 3]};
  }
  for (std::size_t i = 16; i < words.size(); ++i) {
    const std::uint32_t early = words[i - 15];
    const std::uint32_t late = words[i - 2];
    words[i] = words[i - 16] + words[i - 7] +
               (std::rotr(early, 7) ^ std::rotr(early, 18) ^ early >> 3) +
               (std::rotr(late, 17) ^ std::rotr(late, 19) ^ late >> 10);
  }
  auto [a, b, c, d, e, f, g, h] = state_;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::uint32_t first = h + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) +
                                ((e & f) ^ (~e & g)) + kRounds[i] + words[i];
    const std::uint32_t second =
        (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
    h = g;
    g = f;
    f = e;
    e = d + first;
    d = c;
    c = b;
    b = a;
    a = first + second;
  }
  const std::array<std::uint32_t, 8> result = {a, b, c, d, e, f, g, h};
  for (std::size_t i = 0; i < state_.size(); ++i) state_[i] += result[i];
}

}  // namespace quarn::tpk
