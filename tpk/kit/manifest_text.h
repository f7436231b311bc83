// Writes manifests: for a directory that has none yet, and for a kit that was unpacked.
#pragma once

#include <string>

#include "tpk/disk/source_tree.h"
#include "tpk/kit/kit_tables.h"

namespace quarn::tpk {

/// The manifest that makes the kit again from its files in the directory "files" beside it.
std::string ManifestOf(const KitTables& tables, int level);

/// A manifest to begin with, full of comments, for the files of `tree`. `root` is the directory as
/// the manifest is to name it, `name` a first name for the product, which the user can change.
/// Files such as "about_de.html" become the descriptions of their languages.
std::string FirstManifest(const SourceTree& tree, const std::string& root, const std::string& name);

}  // namespace quarn::tpk
