// Errors, writers and the logger.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>

#include "torva/foundation/errors.h"
#include "torva/foundation/logger.h"
#include "torva/foundation/writer.h"

namespace torva {
namespace {

TEST(Errors, HierarchyAndMessagesAreAsGiven) {
  try {
    throw sea::file_error("iSYSTEM ERROR. ");
  } catch (const sea::basic_error& e) {
    EXPECT_STREQ(e.what(), "iSYSTEM ERROR. ");
  }
  try {
    throw sea::fatal_error("GEOMETRY ERROR. \n");
  } catch (const sea::base_error& e) {
    EXPECT_STREQ(e.what(), "GEOMETRY ERROR. \n");
  }
  EXPECT_TRUE((std::is_base_of_v<std::logic_error, sea::base_error>));
  EXPECT_FALSE((std::is_base_of_v<sea::basic_error, sea::fatal_error>));
}

TEST(StringWriter, CollectsCharactersBytesAndFormatsUncut) {
  sea::string_writer w;
  w.write('a').write("bc\0d", 4);
  w("%s-%d", "x", 42).format("%lu", 7ul);
  w.flush().flush();
  EXPECT_EQ(w.text, std::string("abc\0dx-427", 10));
  EXPECT_EQ(w.flushes, 2u);
  w.text.clear();
  w.print("100% %s %n");  // text is never read as a format
  EXPECT_EQ(w.text, "100% %s %n");
  w("%s|", std::string(5000, 'z').c_str());
  EXPECT_EQ(w.text.size(), 10u + 5001u);
}

TEST(FileWriter, WritesOnTheStreamAndLeavesItOpen) {
  FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  {
    sea::file_writer w(f);
    w("<%s>", "a").write('\n').write("xy", 2);
  }
  // still open: the writer only flushed it
  std::rewind(f);
  char buf[32] = {};
  size_t n = std::fread(buf, 1, sizeof buf, f);
  EXPECT_EQ(std::string(buf, n), "<a>\nxy");
  std::fclose(f);
}

struct counting_writer : sea::string_writer {
  explicit counting_writer(int* d) : deaths(d) {}
  ~counting_writer() override { ++*deaths; }
  int* deaths;
};

TEST(Logger, IsOneObjectAndSettersTakeOwnership) {
  EXPECT_EQ(&logger::instance(), &logger::instance());
  int deaths = 0;
  auto& log = logger::instance();
  log.set_console_info(std::make_unique<counting_writer>(&deaths));
  EXPECT_EQ(deaths, 0);
  log.set_console_info(std::make_unique<counting_writer>(&deaths));
  EXPECT_EQ(deaths, 1);  // the replaced writer was deleted
  log.set_console_info(nullptr);
  EXPECT_EQ(deaths, 2);
  EXPECT_EQ(log.console_info, nullptr);
}

}  // namespace
}  // namespace torva
