// Compressed streams that are the same, byte by byte, wherever and whenever they are made.
#pragma once

#include <memory>
#include <span>

#include "tpk/disk/output_file.h"

namespace quarn::tpk {

/// Failures of the output throw. One thread.
class Compressor {
 public:
  Compressor() = default;
  Compressor(const Compressor&) = delete;
  Compressor& operator=(const Compressor&) = delete;
  virtual ~Compressor() = default;

  virtual void Write(std::span<const char> bytes) = 0;
  /// Writes what is left. Nothing may be written afterwards.
  virtual void Finish() = 0;
};

/// gzip, with neither a time nor a system in its head. `output` lives longer.
std::unique_ptr<Compressor> MakeGzip(OutputFile& output);

/// xz. `is_x86_code`: what is compressed is mostly programs for that machine, which then takes a
/// sixteenth less. Unpacking takes 9 MiB of memory. `output` lives longer.
std::unique_ptr<Compressor> MakeXz(OutputFile& output, bool is_x86_code);

}  // namespace quarn::tpk
