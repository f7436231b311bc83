// The per-user file "qlaunch.cfg" of `key=value` lines, which the business platform's launcher
// keeps and the installer reads and rewrites: its places, its reader and writer, and the lists that
// hold its contents in between.
//
// The file is the user's, and more is in it than this system understands. Whatever a reader could
// not take in as text is kept as bytes and written back. All functions belong to one thread; there
// is no file locking.
#pragma once

#include <cstddef>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "config/no_case_index.h"
#include "core/basic_string.h"

namespace quarn {

// --- Keys --------------------------------------------------------------------------------------

inline constexpr const char16_t* kDefaultVersionKey = u"DefaultVersion";
inline constexpr const char16_t* kCommonInfoBasesKey = u"CommonInfoBases";
inline constexpr const char16_t* kInstalledLocationKey = u"InstalledLocation";
inline constexpr const char16_t* kDistributiveLocationKey = u"DistributiveLocation";
inline constexpr const char16_t* kCommonCfgLocationKey = u"CommonCfgLocation";
inline constexpr const char16_t* kInstallComponentsKey = u"InstallComponents";
/// A directory of configuration templates, one on a line. The one key that this system looks at.
inline constexpr const char16_t* kTemplatesLocationKey = u"ConfigurationTemplatesLocation";

// --- Contents ----------------------------------------------------------------------------------

/// One key with its values; each value is a line of its own in the file.
struct ConfigEntry {
  stdx::u16string key;
  std::vector<stdx::u16string> values;
};

/// The entries of a file in the order in which their keys first appear. Keys are distinct in it
/// regardless of letter case, and so are the values that `AddConfigValue` brings to an entry. It is
/// changed through the functions below, in time that grows with its length only where an entry is
/// removed.
class ConfigEntryList {
 public:
  using const_iterator = std::vector<ConfigEntry>::const_iterator;

  const_iterator begin() const noexcept { return entries_.begin(); }
  const_iterator end() const noexcept { return entries_.end(); }
  std::size_t size() const noexcept { return entries_.size(); }
  bool empty() const noexcept { return entries_.empty(); }
  const ConfigEntry& operator[](std::size_t place) const noexcept { return entries_[place]; }

  /// The bytes of the files read that didn't become entries; a writer puts them behind the entries.
  const stdx::string& unread() const noexcept { return unread_; }

 private:
  friend class ConfigReader;
  friend class ConfigWriter;
  friend bool AddConfigValue(ConfigEntryList&, const stdx::u16string&, const stdx::u16string&);
  friend const std::vector<stdx::u16string>* FindConfigValues(const ConfigEntryList&,
                                                              const stdx::u16string&);
  friend void SetConfigValues(ConfigEntryList&, const stdx::u16string&,
                              const std::vector<stdx::u16string>&);
  friend void LoadLauncherConfig(struct LauncherConfig&);

  /// The place of `key`, and whether it was made at the end for it, without values.
  std::pair<std::size_t, bool> Place(const stdx::u16string& key);

  std::vector<ConfigEntry> entries_;
  NoCaseIndex keys_;                 // of `entries_`, place by place
  std::vector<NoCaseIndex> values_;  // of each entry's values, empty until one is added to others
  // The bytes of lines that their text doesn't give back, by that text: "key=value". Characters
  // beyond U+FFFF are cut off when they are read.
  std::unordered_map<stdx::u16string, stdx::string> originals_;
  stdx::string unread_;
  bool is_partial_ = false;  // reading was cut short by an exception or a failing disk
};

/// Adds `value` under `key` behind the other values, making an entry at the end where there is
/// none. The key keeps the letter case of its first appearance. False when the value was there.
bool AddConfigValue(ConfigEntryList& list, const stdx::u16string& key,
                    const stdx::u16string& value);

/// `AddConfigValue` with copies, for texts that lie in the list itself.
bool StoreConfigLine(ConfigEntryList& list, stdx::u16string key, stdx::u16string value);

/// The values of `key`, owned by the list and good until it changes, or null.
const std::vector<stdx::u16string>* FindConfigValues(const ConfigEntryList& list,
                                                     const stdx::u16string& key);

/// Replaces the values of `key`. The entry keeps its place and its key's letter case. No values
/// remove an entry that is there; where there is none, one is appended in any case.
void SetConfigValues(ConfigEntryList& list, const stdx::u16string& key,
                     const std::vector<stdx::u16string>& values);

// --- Files -------------------------------------------------------------------------------------

/// Adds the lines of a file to `list`. A line feed ends a line, its first "=" ends the key; nothing
/// is trimmed, and there are no comments. Lines with neither key nor value are skipped.
///
/// Never reports an error: a file that can't be opened adds nothing, but the list can't be written
/// if there may be lines in the file. The text is decoded in blocks
/// of 1024 bytes, each by itself. A block that the locale can't decode, also because its border
/// cuts a character in two, ends the reading: the complete lines before it are in the list, the
/// file from the line on into which the block falls is kept as `unread`.
void ReadConfigFile(const stdx::u16string& path, ConfigEntryList& list);

/// True when the file can be opened and doesn't begin with the mark of UTF-16, FF FE. Throws the
/// int 1 when it can't be read.
bool IsNotUnicodeFile(const stdx::u16string& path);

/// Writes a line for every value, then what reading left over, in the locale's encoding without a
/// byte-order mark. The file keeps its inode, owner and mode. What reading left over of a UTF-16
/// file is turned into text with it.
///
/// Throws std::length_error for a text with no narrow form, the int 1 when the file can't be opened
/// (or can't be read, so that it couldn't be put back, or the list was not read to its end), 2 when
/// it can't be written. After the first two the file is untouched; after 2 the former contents have
/// been put back as far as the volume takes them, or the file removed if there was none.
void WriteConfigFile(const stdx::u16string& path, const ConfigEntryList& list);

// --- The user's files --------------------------------------------------------------------------

// Where they lie, under the user's home directory. The doubled slashes belong to the names.
// Throw std::length_error when the home directory isn't valid in the locale's encoding.
stdx::u16string GetLauncherDir();
stdx::u16string GetLauncherCfgPath();
stdx::u16string GetProductHomeDir();  ///< ends in "/"
stdx::u16string GetProductLauncherDir();
stdx::u16string GetProductLauncherCfgPath();
stdx::u16string GetAltLauncherDir();
stdx::u16string GetAltLauncherCfgPath();

/// The pair of files that one load or save works on.
struct LauncherConfig {
  ConfigEntryList own;      ///< from the file that is written back
  ConfigEntryList common;   ///< from a file that is only read
  ConfigEntryList extra;    ///< nothing fills it
  bool altProfile = false;  ///< selects the pair: see `LoadLauncherConfig`
};

/// Reads `common` from the product's launcher file and `own` from the launcher's, or with
/// `altProfile` from the launcher's and the alternate launcher's. What cannot be read is missing.
void LoadLauncherConfig(LauncherConfig& store);

/// Writes `own` to its file, making the directory if there's no such file. When that throws, makes
/// two directories that don't lie on the file's path and tries once more; throws as
/// `WriteConfigFile`.
void SaveLauncherConfig(const LauncherConfig& store);

}  // namespace quarn
