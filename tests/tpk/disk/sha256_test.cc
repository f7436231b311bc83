#include "tpk/disk/sha256.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace quarn::tpk {
namespace {

/// Added in parts of `step` bytes.
std::string DigestOf(const std::string& text, std::size_t step) {
  Sha256 sum;
  for (std::size_t at = 0; at < text.size(); at += step) {
    sum.Add(std::as_bytes(std::span(text).subspan(at, std::min(step, text.size() - at))));
  }
  return sum.Finish();
}

TEST(Sha256Test, KnownTextsHaveTheirKnownDigests) {
  const struct {
    std::string text;
    const char* digest;
  } rows[] = {
      {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
       "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
      {std::string(1000000, 'a'),
       "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
  };
  for (const auto& row : rows) {
    for (const std::size_t step : {1u, 63u, 64u, 1000u}) {
      EXPECT_EQ(DigestOf(row.text, step), row.digest) << row.text.size() << " by " << step;
    }
  }
}

}  // namespace
}  // namespace quarn::tpk
