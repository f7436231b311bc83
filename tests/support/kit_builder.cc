#include "tests/support/kit_builder.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace quarn::testing {
namespace {

template <class Number>
std::string LittleEndian(Number value) {
  std::string bytes;
  for (std::size_t i = 0; i < sizeof(value); ++i) {
    bytes += static_cast<char>(value >> (8 * i) & 0xff);
  }
  return bytes;
}

std::string Text(const std::u16string& text) {
  std::string bytes = LittleEndian(static_cast<std::uint32_t>(text.size()));
  for (const char16_t unit : text) bytes += LittleEndian(static_cast<std::uint16_t>(unit));
  return bytes;
}

class Deflater {
 public:
  Deflater(const DeflateOptions& options, std::function<void(std::string_view)> sink)
      : flush_every_(options.flush_every), sink_(std::move(sink)) {
    if (deflateInit2(&stream_, options.level, Z_DEFLATED, -options.window_bits,
                     options.memory_level, options.strategy) != Z_OK) {
      throw std::invalid_argument("deflateInit2");
    }
  }
  Deflater(const Deflater&) = delete;
  Deflater& operator=(const Deflater&) = delete;
  ~Deflater() { deflateEnd(&stream_); }

  void Add(std::string_view bytes) {
    const std::size_t step = flush_every_ == 0 ? std::size_t{1} << 30 : flush_every_;
    for (; !bytes.empty(); bytes.remove_prefix(std::min(step, bytes.size()))) {
      Run(bytes.substr(0, step), flush_every_ == 0 ? Z_NO_FLUSH : Z_FULL_FLUSH);
    }
  }
  void Finish() { Run({}, Z_FINISH); }

 private:
  void Run(std::string_view bytes, int flush) {
    stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream_.avail_in = static_cast<uInt>(bytes.size());
    do {
      char buffer[65536];
      stream_.next_out = reinterpret_cast<Bytef*>(buffer);
      stream_.avail_out = sizeof(buffer);
      deflate(&stream_, flush);
      sink_(std::string_view(buffer, sizeof(buffer) - stream_.avail_out));
    } while (stream_.avail_out == 0);
  }

  std::size_t flush_every_;
  std::function<void(std::string_view)> sink_;
  z_stream stream_{};
};

}  // namespace

std::string Deflate(std::string_view bytes, const DeflateOptions& options) {
  std::string stream;
  Deflater deflater(options, [&](std::string_view piece) { stream += piece; });
  deflater.Add(bytes);
  deflater.Finish();
  return stream;
}

KitBuilder& KitBuilder::SingleProduct(std::u16string name, std::u16string provider,
                                      std::u16string description) {
  single_product_ = true;
  products_ = {{u"en", std::move(name), std::move(provider), std::move(description), ""}};
  return *this;
}

KitBuilder& KitBuilder::Product(std::u16string language, std::u16string name,
                                std::u16string provider, std::u16string description,
                                std::string surplus) {
  products_.push_back({std::move(language), std::move(name), std::move(provider),
                       std::move(description), std::move(surplus)});
  return *this;
}

KitBuilder& KitBuilder::File(std::u16string name, std::string contents, std::uint64_t time,
                             std::string surplus) {
  files_.push_back({std::move(name), std::move(contents), 1, time, std::move(surplus), {}, {}});
  return *this;
}

KitBuilder& KitBuilder::RepeatedFile(std::u16string name, std::string piece, std::uint32_t times) {
  files_.push_back({std::move(name), std::move(piece), times, Ticks(kKitTime), "", {}, {}});
  return *this;
}

KitBuilder& KitBuilder::FileAt(std::u16string name, std::uint32_t offset, std::uint32_t size,
                               std::uint64_t time) {
  files_.push_back({std::move(name), "", 0, time, "", offset, size});
  return *this;
}

KitBuilder& KitBuilder::Set(const std::string& field, std::uint32_t value) {
  damage_[field] = value;
  return *this;
}

KitBuilder& KitBuilder::CutAt(const std::string& field, std::size_t bytes) {
  cut_ = {field, bytes};
  return *this;
}

KitBuilder::Tables KitBuilder::MakeTables() const {
  Tables tables;
  std::string& bytes = tables.bytes;
  const auto add = [&](const std::string& field, const std::string& value) {
    tables.fields[field] = bytes.size();
    bytes += value;
  };
  const auto add_number = [&](const std::string& field, std::size_t value) {
    add(field, LittleEndian(static_cast<std::uint32_t>(value)));
  };
  const auto close_record = [&](const std::string& field, const std::string& surplus) {
    bytes += surplus;
    const std::size_t start = tables.fields.at(field);
    bytes.replace(start, 4, LittleEndian(static_cast<std::uint32_t>(bytes.size() - start)));
  };

  add_number("layout", single_product_ ? 0 : 1);
  if (single_product_) {
    add("name", Text(products_[0].name));
    add("provider", Text(products_[0].provider));
    add("description", Text(products_[0].description));
  } else {
    add_number("product count", products_.size());
    for (std::size_t i = 0; i < products_.size(); ++i) {
      const std::string record = "product " + std::to_string(i);
      add_number(record + " size", 0);
      add(record + " language", Text(products_[i].language));
      add(record + " name", Text(products_[i].name));
      add(record + " provider", Text(products_[i].provider));
      add(record + " description", Text(products_[i].description));
      close_record(record + " size", products_[i].surplus);
    }
  }

  add_number("file count", files_.size());
  std::size_t offset = 0;
  for (std::size_t i = 0; i < files_.size(); ++i) {
    const FileRecord& file = files_[i];
    const std::size_t size = file.piece.size() * file.times;
    const std::string record = "file " + std::to_string(i);
    add_number(record + " size", 0);
    add(record + " name", Text(file.name));
    add(record + " time", LittleEndian(file.time));
    add_number(record + " offset", file.offset.value_or(static_cast<std::uint32_t>(offset)));
    add_number(record + " data size", file.size.value_or(static_cast<std::uint32_t>(size)));
    close_record(record + " size", file.surplus);
    offset += size;
  }
  tables.fields["data"] = bytes.size();

  for (const auto& [field, value] : damage_) {
    bytes.replace(tables.fields.at(field), 4, LittleEndian(value));
  }
  return tables;
}

void KitBuilder::Emit(const std::function<void(std::string_view)>& sink) const {
  const Tables tables = MakeTables();
  std::size_t left = cut_ ? tables.fields.at(cut_->first) + cut_->second : std::string::npos;
  const auto emit = [&](std::string_view bytes) {
    bytes = bytes.substr(0, left);
    left -= bytes.size();
    sink(bytes);
  };
  emit(tables.bytes);
  for (const FileRecord& file : files_) {
    for (std::uint32_t i = 0; i < file.times; ++i) emit(file.piece);
  }
}

std::string KitBuilder::Image() const {
  std::string image;
  Emit([&](std::string_view bytes) { image += bytes; });
  return image;
}

std::size_t KitBuilder::Position(const std::string& field) const {
  return MakeTables().fields.at(field);
}

void KitBuilder::WriteTo(const std::filesystem::path& path, const DeflateOptions& options) const {
  std::ofstream out(path, std::ios::binary);
  Deflater deflater(options, [&](std::string_view piece) {
    out.write(piece.data(), static_cast<std::streamsize>(piece.size()));
  });
  Emit([&](std::string_view bytes) { deflater.Add(bytes); });
  deflater.Finish();
  out.close();
  if (!out) throw std::runtime_error("cannot write " + path.string());
}

}  // namespace quarn::testing
