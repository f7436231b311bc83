#include "tpk/bundle/single_file.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <span>
#include <string_view>

#include "tpk/disk/input_file.h"
#include "tpk/disk/sha256.h"
#include "tpk/text/cancel.h"

namespace quarn::tpk {
namespace {

namespace fs = std::filesystem;

constexpr unsigned char kScript[] = {
#include "single_file.inc"
};

void ForEachPart(const fs::path& path, const std::function<void(std::span<const std::byte>)>& use) {
  InputFile file(path);
  std::array<std::byte, std::size_t{64} * 1024> buffer;
  for (;;) {
    ThrowIfCancelled();
    const std::size_t amount = file.ReadAll(buffer);
    if (amount == 0) return;
    use(std::span(buffer).first(amount));
  }
}

/// As one word of a shell script.
std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + '\'';
}

void Fill(std::string& script, std::string_view place, const std::string& value) {
  script.replace(script.find(place), place.size(), value);
}

}  // namespace

void WriteSingleFile(const fs::path& archive, const std::string& bundle, OutputFile& output) {
  Sha256 sum;
  ForEachPart(archive, [&sum](std::span<const std::byte> part) { sum.Add(part); });
  std::string script(std::begin(kScript), std::end(kScript));
  // The last one first: a name may look like the place of another value.
  const std::string digest = sum.Finish();
  const auto lines = std::count(bundle.begin(), bundle.end(), '\n') +
                     std::count(script.begin(), script.end(), '\n');
  Fill(script, "@first_line@", std::to_string(lines + 1));
  Fill(script, "@sum@", digest);
  Fill(script, "@bundle@", Quoted(bundle));
  output.Write(std::as_bytes(std::span(script)));
  ForEachPart(archive, [&output](std::span<const std::byte> part) { output.Write(part); });
  output.MakeExecutable();
}

}  // namespace quarn::tpk
