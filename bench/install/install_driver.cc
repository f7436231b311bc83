// What peers.sh measures and what it needs: payloads, kits of them, one pass over a policy.
//   install_driver payload large|small DIRECTORY   writes 30 files of 400 MB or 5,000 small ones
//   install_driver pack DIRECTORY KIT              makes a kit of a directory
//   install_driver ordinary|direct KIT TARGET      reads a kit and installs it, in one pass
//   install_driver warm BYTES                      uses that much memory for a moment
#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "core/direct_file_system.h"
#include "core/file_system.h"
#include "install/restoring_transaction.h"
#include "install/wizard_pass.h"
#include "kit/install_data.h"
#include "kit/lz_compressor.h"
#include "tests/support/kit_builder.h"

namespace {

namespace fs = std::filesystem;

/// Nine parts of text and one that does not compress.
std::string Contents(std::size_t size, std::mt19937& random) {
  std::string text;
  text.reserve(size + 32);
  while (text.size() < size * 9 / 10) {
    text += "word" + std::to_string(random() % 5000) + (random() % 9 == 0 ? "\n" : " ");
  }
  while (text.size() < size) text += static_cast<char>(random());
  text.resize(size);
  return text;
}

void WritePayload(bool large, const fs::path& directory) {
  std::mt19937 random(1);
  const int count = large ? 30 : 5000;
  for (int i = 0; i < count; ++i) {
    const std::size_t size = large ? 400000000 / 30 : 1024 + random() % (7 * 1024);
    const fs::path path = directory / ("group " + std::to_string(i % (large ? 5 : 50))) /
                          ("template " + std::to_string(i) + ".txt");
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << Contents(size, random);
    const timespec times[2] = {{quarn::testing::kKitTime, 0}, {quarn::testing::kKitTime, 0}};
    utimensat(AT_FDCWD, path.c_str(), times, 0);
  }
}

void Pack(const fs::path& directory, const fs::path& kit) {
  quarn::testing::KitBuilder builder;
  builder.Product(u"en", u"Payload", u"", u"");
  for (const auto& entry : fs::recursive_directory_iterator(directory)) {
    if (!entry.is_regular_file()) continue;
    std::u16string name = fs::relative(entry.path(), directory).u16string();
    for (char16_t& unit : name) unit = unit == u'/' ? u'\\' : unit;
    std::ifstream in(entry.path(), std::ios::binary);
    builder.File(std::move(name), std::string(std::istreambuf_iterator<char>(in), {}));
  }
  builder.WriteTo(kit);
}

template <class Policy>
bool Install(const fs::path& kit, const fs::path& target) {
  quarn::InstallData<quarn::LZCompressor, Policy> data;
  if (data.Read(stdx::u16string(kit.u16string())) != 0) return false;
  quarn::InstallProcessData record;
  if constexpr (quarn::RestoringFileSystem<Policy>) {
    stdx::u16string temporary;
    quarn::GetTempDirectory(&temporary);
    quarn::RestoringTransaction transaction(data.file_system(), temporary + u"staged/");
    return quarn::InstallPass(transaction, &data, stdx::u16string((target / "").u16string()),
                              &record)
               .Run() == 0;
  } else {
    quarn::InstallTransactions transactions;
    quarn::SetJob(&record, &data, stdx::u16string(target.u16string()));
    return quarn::RunInstall(transactions, &record) == 0;
  }
}

void Warm(std::size_t bytes) {
  char* const block = static_cast<char*>(std::malloc(bytes));
  if (block == nullptr) return;
  for (std::size_t i = 0; i < bytes; i += 4096) static_cast<volatile char*>(block)[i] = 1;
  std::free(block);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string verb = argc > 1 ? argv[1] : "";
  if (verb == "warm" && argc == 3) {
    Warm(std::strtoull(argv[2], nullptr, 10));
    return 0;
  }
  if (argc == 4) {
    if (verb == "payload") return WritePayload(std::strcmp(argv[2], "large") == 0, argv[3]), 0;
    if (verb == "pack") return Pack(argv[2], argv[3]), 0;
    if (verb == "ordinary") return Install<quarn::FileSystem>(argv[2], argv[3]) ? 0 : 1;
    if (verb == "direct") return Install<quarn::DirectFileSystem>(argv[2], argv[3]) ? 0 : 1;
  }
  std::fprintf(stderr, "see the head of bench/install/install_driver.cc\n");
  return 2;
}
