#include "torva/foundation/file_pool.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <memory>

#include "torva_testing/log_capture.h"

namespace torva {
namespace {

using sea::file_pool;

file_pool& pool() { return file_pool::instance(); }

TEST(FilePool, WordPathsNameTheStandardStreams) {
  EXPECT_EQ(pool().open_impl("stdin", "w"), stdin);  // the word decides, whatever the mode
  EXPECT_EQ(pool().open_impl("stdout", "r"), stdout);
  EXPECT_EQ(pool().open_impl("stderr", "r"), stderr);
  EXPECT_EQ(pool().open_impl("-", "rb"), stdin);  // "-" reads or writes by the mode
  EXPECT_EQ(pool().open_impl("-", "a"), stdout);
}

TEST(FilePool, DashWithReadPlusIsAnOrdinaryFileName) {
  testing::temp_dir dir;
  ASSERT_EQ(chdir(dir.path.c_str()), 0);
  { std::ofstream("-") << "x"; }
  FILE* f = pool().open_impl("-", "r+");
  EXPECT_NE(f, stdin);
  EXPECT_NE(f, stdout);
  ASSERT_EQ(chdir("/"), 0);
}

TEST(FilePool, NullWordsShareOneDevNullStream) {
  FILE* a = pool().open_impl("", "w");
  FILE* b = pool().open_impl(nullptr, "w");
  FILE* c = pool().open_impl("null", "w");
  FILE* d = pool().open_impl("/dev/null", "w");
  EXPECT_EQ(a, b);
  EXPECT_EQ(a, c);
  EXPECT_EQ(a, d);
  // /dev/null is one file: another mode is refused.
  EXPECT_THROW(pool().open_impl("null", "r"), sea::file_error);
}

TEST(FilePool, SecondOpenSharesTheStreamAndDoesNotTruncate) {
  testing::temp_dir dir;
  const std::string path = dir.file("out.txt");
  FILE* a = pool().open_impl(path.c_str(), "w");
  std::fputs("hello", a);
  std::fflush(a);
  FILE* b = pool().open_impl(path.c_str(), "w");
  EXPECT_EQ(a, b);
  std::fflush(b);
  std::ifstream in(path);
  std::string got;
  in >> got;
  EXPECT_EQ(got, "hello");
}

TEST(FilePool, TwoSpellingsAndAHardLinkShareOneStream) {
  testing::temp_dir dir;
  const std::string path = dir.file("a.txt");
  { std::ofstream(path) << "data"; }
  const std::string spelled = dir.path.string() + "/./a.txt";
  const std::string linked = dir.file("b.txt");
  ASSERT_EQ(link(path.c_str(), linked.c_str()), 0);
  FILE* a = pool().open_impl(path.c_str(), "r");
  EXPECT_EQ(pool().open_impl(spelled.c_str(), "r"), a);
  EXPECT_EQ(pool().open_impl(linked.c_str(), "r"), a);
}

TEST(FilePool, ModeConflictOrMissingDirectoryThrowsNamingPathAndMode) {
  testing::temp_dir dir;
  const std::string path = dir.file("m.txt");
  { std::ofstream(path) << "data"; }
  pool().open_impl(path.c_str(), "r");
  try {
    pool().open_impl(path.c_str(), "rb");
    FAIL() << "expected a file_error";
  } catch (const sea::file_error& e) {
    EXPECT_EQ(std::string(e.what()), "cannot open file \"" + path + "\" with flag \"rb\"\n");
  }
  EXPECT_THROW(pool().open_impl(path.c_str(), "w"), sea::file_error);
  // The lock was released on the way out: a later open works.
  EXPECT_NE(pool().open_impl(path.c_str(), "r"), nullptr);
  try {
    pool().open_impl("/nonexistent-dir-torva/x.txt", "w");
    FAIL() << "expected a file_error";
  } catch (const sea::file_error& e) {
    EXPECT_STREQ(e.what(), "cannot open file \"/nonexistent-dir-torva/x.txt\" with flag \"w\"\n");
  }
}

TEST(FilePool, CannotOpenCutsToFit1024Bytes) {
  std::string longpath(3000, 'p');
  auto e = file_pool::cannot_open(longpath.c_str(), "w");
  EXPECT_EQ(std::string(e.what()).size(), 1023u);
}

TEST(FileDeleter, SparesNullStdoutAndStderrButClosesOthers) {
  file_deleter del;
  del(nullptr);
  del(stdout);
  del(stderr);
  EXPECT_NE(fcntl(fileno(stdout), F_GETFD), -1);
  EXPECT_NE(fcntl(fileno(stderr), F_GETFD), -1);
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  { std::shared_ptr<FILE> handle(fdopen(fds[1], "w"), file_deleter{}); }
  char c;
  EXPECT_EQ(read(fds[0], &c, 1), 0);  // the write end is closed: end of file
  close(fds[0]);
}

}  // namespace
}  // namespace torva
