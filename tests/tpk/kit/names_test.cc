#include "tpk/kit/names.h"

#include <gtest/gtest.h>

#include "tpk/text/failure.h"

namespace quarn::tpk {
namespace {

TEST(Names, AStoredNameSeparatesWithBackslashesAndAnInstalledOneWithSlashes) {
  EXPECT_EQ(StoredName(u"a/b\\c/"), stdx::u16string(u"a\\b\\c\\"));
  EXPECT_EQ(InstalledName(u"a/b\\\u00e4"), "a/b/\xC3\xA4");
}

TEST(Names, AFileIsInstalledBelowTheDirectoryWhateverItsNameStartsWith) {
  EXPECT_EQ(InstalledAt("/target", u"a\\b").native(), "/target/a/b");
  EXPECT_EQ(InstalledAt("/target", u"\\etc").native(), "/target//etc");
}

TEST(Names, TheEngineReadsANameUpToItsFirstZero) {
  EXPECT_EQ(EngineName(stdx::u16string(u"a\\b\0c", 5)), "a/b");
}

TEST(Names, APathForTheEngineIsUtf8) {
  EXPECT_EQ(EnginePath("/a\\b"), stdx::u16string(u"/a\\b"));
  EXPECT_THROW(EnginePath("/\xFF"), Failure);
  EXPECT_THROW(RequireEnginePath("/\xF0\x9F\x98\x80"), Failure);
}

TEST(Names, WhatLeadsOutOfTheTargetHasNoNameBelowIt) {
  EXPECT_EQ(NameBelow("./a//b/."), "a/b");
  for (const char* const name : {"/etc", "..", "a/../b", ""})
    EXPECT_EQ(NameBelow(name), "") << name;
}

TEST(Names, TheNamesOfPlacesAreReserved) {
  for (const char* const name : {".tpk-install", ".tpk-install/journal", "./.tpk-install/x",
                                 "a/../.tpk-install/x", ".TPK-Install/x"}) {
    EXPECT_TRUE(IsReservedName(name)) << name;
  }
  for (const char* const name : {"", "a", "a/.tpk-install", ".tpk-install2", ".tpk"}) {
    EXPECT_FALSE(IsReservedName(name)) << name;
  }
}

}  // namespace
}  // namespace quarn::tpk
