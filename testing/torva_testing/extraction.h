// Test helper: layouts written as cap3d text and extracted, and the check of
// an estimate against another within their standard errors.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>

#include "torva/extract/extractor.h"
#include "torva/layout/cap3d_parser.h"
#include "torva_testing/log_capture.h"

namespace torva::testing {

constexpr double eps0 = 8.8541878128e-3;  // fF/um

// A box conductor block in the text form.
inline std::string block(const std::string& net, double x, double y, double z, double dx, double dy, double dz) {
  char buf[512];
  std::snprintf(buf, sizeof buf,
                "<conductor> name %s <block> basepoint(%.17g,%.17g,%.17g) v1(%.17g,0,0) v2(0,%.17g,0) "
                "hvector(0,0,%.17g) </block> </conductor>\n",
                net.c_str(), x, y, z, dx, dy, dz);
  return buf;
}

inline std::string window(double lo, double hi, const std::string& extra = "") {
  char buf[256];
  std::snprintf(buf, sizeof buf, "<window> v1(%.17g,%.17g,%.17g) v2(%.17g,%.17g,%.17g) dirichlet </window>\n%s", lo,
                lo, lo, hi, hi, hi, extra.c_str());
  return buf;
}

struct extraction : ::testing::Test {
  log_capture log;
  temp_dir dir;

  extract_result run(const std::string& body, extract_options o) {
    const std::string path = dir.file("layout.cap3d");
    std::ofstream(path) << "<cap3d>\n" << body << "</cap3d>\n";
    circuit_layout layout;
    Cap3dParser parser(layout.data, 4, true, false);
    EXPECT_TRUE(parser.parse(path, "")) << log.error();
    return extract(layout, o);
  }
};

// Within k standard errors of the two estimates together.
inline void expect_agree(double a, double sa, double b, double sb, const std::string& what, double k = 3.0) {
  EXPECT_LE(std::abs(a - b), k * std::hypot(sa, sb)) << what << ": " << a << " +- " << sa << " vs " << b << " +- " << sb;
}

}  // namespace torva::testing
