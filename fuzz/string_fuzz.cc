// Random operations on three strings that share blocks, against three standard strings.
#include <string>
#include <utility>

#include "input_limits.h"
#include "scratch.h"

#include "core/basic_string.h"

namespace {

using quarn::fuzz::Input;
using quarn::fuzz::Require;

template <class C>
void Check(const stdx::basic_string<C>& ours, const std::basic_string<C>& model) {
  using String = stdx::basic_string<C>;
  Require(ours.view() == model, "the contents are the model's");
  Require(ours.data()[ours.size()] == C(), "a terminator follows the text");
  if (ours.mode() != String::kHeapMarker) {
    Require(ours.size() < String::kInlineCapacity, "an inline text fits");
  } else {
    Require(ours.block_capacity() >= ours.size() + String::kHeaderUnits, "a heap text fits");
    Require(ours.use_count() >= 1 && ours.use_count() <= 3, "a block is owned");
  }
}

template <class C>
void Run(Input input) {
  using String = stdx::basic_string<C>;
  using Model = std::basic_string<C>;
  String ours[3];
  Model models[3];
  for (int step = 0; step < 200 && !input.empty(); ++step) {
    const std::size_t a = input.Number(3);
    const std::size_t b = input.Number(3);
    String& s = ours[a];
    Model& m = models[a];
    const std::size_t position = input.Number(m.size() + 1);
    const std::size_t count = input.Number(40);
    const C unit = static_cast<C>('a' + input.Byte() % 3);
    switch (input.Byte() % 16) {
      case 0:
        s = ours[b];
        m = models[b];
        break;
      case 1:
        s.append(ours[b]);
        m.append(models[b]);
        break;
      case 2:
        s = Model(count, unit).c_str();
        m.assign(count, unit);
        break;
      case 3:
        s.erase(position, count);
        m.erase(position, count);
        break;
      case 4:
        s.insert(position, ours[b].view());
        m.insert(position, Model(models[b]));
        break;
      case 5:
        s.resize(count, unit);
        m.resize(count, unit);
        break;
      case 6:
        s.reserve(count);
        m.reserve(count);
        break;
      case 7:
        s.push_back(unit);
        m.push_back(unit);
        break;
      case 8:
        s = ours[b].substr(0, position);
        m = Model(models[b], 0, position);
        break;
      case 9: {
        const std::size_t length = std::min(count, m.size() - position);
        s.append(s.data() + position, length);
        m.append(Model(m, position, length));
        break;
      }
      case 10: {
        const std::size_t length = std::min(count, m.size() - position);
        s.assign(s.data() + position, length);
        m = Model(m, position, length);
        break;
      }
      case 11: {
        const Model pattern(count % 3 + 1, unit);
        const Model replacement(position % 4, C('b'));
        std::int64_t replaced = 0;
        for (std::size_t at = m.find(pattern); at != Model::npos;
             at = m.find(pattern, at + replacement.size())) {
          m.replace(at, pattern.size(), replacement);
          ++replaced;
        }
        Require(s.replace_all(pattern, replacement) == replaced, "replacements are counted");
        break;
      }
      case 12:
        s.replace(position, count, ours[b].view());
        m.replace(position, count, Model(models[b]));
        break;
      case 13:
        s = ours[b] + s;
        m = models[b] + m;
        break;
      case 14:
        std::swap(s, ours[b]);
        m.swap(models[b]);
        break;
      case 15:
        if (!m.empty()) {
          s.data()[position % m.size()] = unit;
          m[position % m.size()] = unit;
        }
        break;
    }
    if (m.size() > 4096) {
      s.clear();
      m.clear();
    }
    for (int i = 0; i < 3; ++i) Check(ours[i], models[i]);
    Require((ours[a] < ours[b]) == (models[a] < models[b]), "texts are ordered by their units");
    Require(s.find(unit, position) == m.find(unit, position), "a unit is found");
    Require(s.rfind(models[b]) == m.rfind(models[b]), "a text is found from the end");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const quarn::fuzz::Limits limits(size, 1 << 16, 1 << 15);
  Run<char16_t>(Input({data, size}));
  Run<char>(Input({data, size}));
  return 0;
}
