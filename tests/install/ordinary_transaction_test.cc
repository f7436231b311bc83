// The steps of an ordinary transaction, each by itself.
#include "install/ordinary_transaction.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "tests/install/installation.h"

namespace quarn::testing {
namespace {

namespace fs = std::filesystem;
using TreeMap = std::map<std::string, std::string>;

class OrdinaryTransactionTest : public InstallTest {};

TEST_F(OrdinaryTransactionTest, TheRootDirectoryIsAlwaysThereAndNeverRecorded) {
  FileSystem files;
  InstallTransactions transactions(1);
  OrdinaryTransaction process(files, transactions);
  EXPECT_EQ(process.MakeDirectoryRecorded(u"/"), 0u);
  EXPECT_TRUE(transactions[0].created_directories.empty());
}

TEST_F(OrdinaryTransactionTest, MakeDirectoryRecordsNothing) {
  FileSystem files;
  InstallTransactions transactions(1);
  OrdinaryTransaction process(files, transactions);
  EXPECT_EQ(process.MakeDirectory(U16(target() / "x" / "y")), 0u);
  EXPECT_TRUE(fs::is_directory(target() / "x/y"));
  EXPECT_TRUE(transactions[0].created_directories.empty());
}

TEST_F(OrdinaryTransactionTest, ADirectoryThatCannotBeMadeHasNoPathToTryAtItsEnd) {
  FileSystem files;
  InstallTransactions transactions(1);
  OrdinaryTransaction process(files, transactions);
  fs::current_path(target());
  WriteFile(target() / "file", "");
  EXPECT_EQ(process.MakeDirectoryRecorded(u"file"), FILE_ERR_PATH_NOT_FOUND);
  EXPECT_EQ(process.MakeDirectoryRecorded(u""), FILE_ERR_PATH_NOT_FOUND);
  // The root of a drive has no parent either.
  WriteFile(target() / "c:", "");
  EXPECT_EQ(process.MakeDirectoryRecorded(u"c:/x"), FILE_ERR_PATH_NOT_FOUND);
  EXPECT_TRUE(transactions[0].created_directories.empty());
}

TEST_F(OrdinaryTransactionTest, ARollbackOfNothingReturnsItsCode) {
  FileSystem files;
  InstallTransactions transactions;
  EXPECT_EQ(OrdinaryTransaction(files, transactions).Rollback(5), 5u);
}

TEST_F(OrdinaryTransactionTest, ARollbackDeletesTheFilesThatWereListedForIt) {
  WriteFile(target() / "listed", "");
  WriteFile(target() / "kept", "");
  FileSystem files;
  InstallTransactions transactions(1);
  transactions[0].files_to_delete = {U16(target() / "listed"), U16(target() / "gone")};
  EXPECT_EQ(OrdinaryTransaction(files, transactions).Rollback(7), 7u);
  EXPECT_EQ(Tree(target()), (TreeMap{{"kept", ""}}));
}

TEST_F(OrdinaryTransactionTest, RemoveTreeTakesADirectoryWithAllItHolds) {
  FileSystem files;
  InstallTransactions transactions;
  OrdinaryTransaction transaction(files, transactions);
  for (const char* const end : {"", "/"}) {
    WriteFile(target() / "x" / "y" / "file", "");
    WriteFile(target() / "x" / "*", "");
    fs::create_symlink(kit(), target() / "x" / "link");
    EXPECT_EQ(transaction.RemoveTree(U16((target() / "x").string() + end)), 0u);
    EXPECT_EQ(Tree(target()), TreeMap());
  }
  // A backslash at the end counts as separator enough, and names another directory.
  WriteFile(target() / "x\\" / "file", "");
  WriteFile(target() / "x" / "file", "");
  EXPECT_EQ(transaction.RemoveTree(U16(target() / "x") + u'\\'), 0u);
  EXPECT_TRUE(fs::exists(target() / "x" / "file"));
  EXPECT_EQ(transaction.RemoveTree(U16(target() / "missing")), 0u);
  EXPECT_EQ(transaction.RemoveTree(u""), 0u);
}

TEST_F(OrdinaryTransactionTest, RemoveTreeTakesNamesThatTheLocaleCannotExpress) {
  FileSystem files;
  InstallTransactions transactions;
  OrdinaryTransaction transaction(files, transactions);
  for (int i = 0; i < 20; ++i) {
    WriteFile(target() / "x" / ("\xff name " + std::to_string(i)), "");
  }
  EXPECT_EQ(transaction.RemoveTree(U16(target() / "x")), 0u);
  EXPECT_EQ(Tree(target()), TreeMap());
}

}  // namespace
}  // namespace quarn::testing
