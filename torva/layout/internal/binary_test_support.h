// Test support for the layout readers: a builder of raw binary file bytes,
// checks of a box's corners, and a comparison of two layout records field by
// field.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <unordered_map>

#include "torva/layout/records.h"

namespace torva::internal {

// Builds a binary file byte by byte. Integers are written in the machine's
// order, or swapped with `swapped`; floats and doubles always as they stand.
struct binary_bytes {
  std::string data;
  bool swapped = false;

  explicit binary_bytes(unsigned char flag = 0) : swapped((flag & 1) != 0) {
    data = "CAP3D_BINARY";
    data.push_back(static_cast<char>(flag));
  }

  binary_bytes& u8(unsigned v) {
    data.push_back(static_cast<char>(v));
    return *this;
  }
  binary_bytes& i16(int v) {
    std::uint16_t b = static_cast<std::uint16_t>(v);
    if (swapped) b = __builtin_bswap16(b);
    return raw(&b, 2);
  }
  binary_bytes& i32(std::int32_t v) {
    std::uint32_t b = static_cast<std::uint32_t>(v);
    if (swapped) b = __builtin_bswap32(b);
    return raw(&b, 4);
  }
  binary_bytes& f32(float v) { return raw(&v, 4); }
  binary_bytes& f64(double v) { return raw(&v, 8); }
  binary_bytes& text(const std::string& s) {
    data += s;
    return *this;
  }
  binary_bytes& raw(const void* p, std::size_t n) {
    data.append(static_cast<const char*>(p), n);
    return *this;
  }

  // A record: the length, then the type and `payload`.
  binary_bytes& record(unsigned type, const std::string& payload) {
    i16(static_cast<int>(payload.size() + 3));
    u8(type);
    return text(payload);
  }
};

// The payload bytes of fields, built with a throwaway builder.
struct payload : binary_bytes {
  explicit payload(bool swap = false) {
    data.clear();
    swapped = swap;
  }
};

// Lengths are equal within `tolerance`: the library's own by default, or the
// last printed digit of a text dump.
struct layout_match {
  bool medium_side_tans = true;  // the binary form has none
  bool parameters = true;
  double tolerance = 1e-10;
};

// The corners of a box, each within a few units in the last place.
inline void expect_box(const cuboid_t& box, double x0, double y0, double z0, double x1, double y1, double z1) {
  const double lower[] = {x0, y0, z0}, upper[] = {x1, y1, z1};
  for (int c = 0; c < 3; ++c) {
    EXPECT_DOUBLE_EQ(box.lower[c].value, lower[c]) << "lower " << c;
    EXPECT_DOUBLE_EQ(box.upper[c].value, upper[c]) << "upper " << c;
  }
}

inline bool same_length(sea::double_wrapper a, sea::double_wrapper b, double tolerance) {
  const double d = a.value - b.value;
  return (d < 0 ? -d : d) <= tolerance;
}

inline void expect_same_box(const cuboid_t& a, const cuboid_t& b, const std::string& what, double tolerance = 1e-10) {
  for (int c = 0; c < 3; ++c) {
    EXPECT_TRUE(same_length(a.lower[c], b.lower[c], tolerance))
        << what << " lower " << c << ": " << a.lower[c].value << " vs " << b.lower[c].value;
    EXPECT_TRUE(same_length(a.upper[c], b.upper[c], tolerance))
        << what << " upper " << c << ": " << a.upper[c].value << " vs " << b.upper[c].value;
  }
}

// Kind, solid and both boxes.
inline void expect_same_shape(const shape_t& a, const shape_t& b, const std::string& what, double tolerance = 1e-10) {
  ASSERT_EQ(a.shape_kind, b.shape_kind) << what;
  expect_same_box(a.inner_box, b.inner_box, what + " inner", tolerance);
  expect_same_box(a.outer_box, b.outer_box, what + " outer", tolerance);
  ASSERT_EQ(a.inner_pieces.size(), b.inner_pieces.size()) << what;
  ASSERT_EQ(a.outer_pieces.size(), b.outer_pieces.size()) << what;
  for (std::size_t k = 0; k < a.inner_pieces.size(); ++k) {
    expect_same_box(a.inner_pieces[k], b.inner_pieces[k], what + " inner piece", tolerance);
    expect_same_box(a.outer_pieces[k], b.outer_pieces[k], what + " outer piece", tolerance);
  }
  if (a.shape_kind == shape_cuboid) {
    expect_same_box(a.cuboid(), b.cuboid(), what, tolerance);
  } else if (a.shape_kind == shape_cylinder) {
    for (int c = 0; c < 3; ++c) EXPECT_TRUE(same_length(a.cylinder().center[c], b.cylinder().center[c], tolerance));
    EXPECT_TRUE(same_length(a.cylinder().radius, b.cylinder().radius, tolerance)) << what;
    EXPECT_TRUE(same_length(a.cylinder().half_height, b.cylinder().half_height, tolerance)) << what;
  } else {
    const nprism_t& p = a.prism();
    const nprism_t& q = b.prism();
    ASSERT_EQ(p.size, q.size) << what;
    for (std::uint64_t k = 0; k < p.size; ++k)
      EXPECT_TRUE(same_length(p.points[k][0], q.points[k][0], tolerance) &&
                  same_length(p.points[k][1], q.points[k][1], tolerance))
          << what << " vertex " << k;
    EXPECT_TRUE(same_length(p.bottom, q.bottom, tolerance) && same_length(p.top, q.top, tolerance)) << what;
  }
}

// Floats of the binary form: equal within single precision.
inline void expect_near_float(double a, double b, const char* what) {
  EXPECT_NEAR(a, b, 1e-6 * (1.0 + (a < 0 ? -a : a))) << what;
}

// Everything a reader fills; parameters of the binary form are floats and
// compared within single precision.
inline void expect_same_layout(const circuit_layout::raw& a, const circuit_layout::raw& b,
                               const layout_match& match = {}) {
  const double tolerance = match.tolerance;
  ASSERT_EQ(a.wire_nets.size(), b.wire_nets.size());
  ASSERT_EQ(a.wire_blocks.size(), b.wire_blocks.size());
  ASSERT_EQ(a.medium_nets.size(), b.medium_nets.size());
  ASSERT_EQ(a.medium_blocks.size(), b.medium_blocks.size());
  for (std::size_t n = 0; n < a.wire_nets.size(); ++n) {
    const wire_net& x = a.wire_nets[n];
    const wire_net& y = b.wire_nets[n];
    EXPECT_EQ(x.name, y.name) << "net " << n;
    EXPECT_EQ(x.floating, y.floating) << "net " << n;
    ASSERT_EQ(x.blocks.size(), y.blocks.size()) << "net " << n;
  }
  for (std::size_t k = 0; k < a.wire_blocks.size(); ++k) {
    const wire_block& x = a.wire_blocks[k];
    const wire_block& y = b.wire_blocks[k];
    const std::string what = "block " + std::to_string(k);
    EXPECT_EQ(x.name, y.name) << what;
    EXPECT_EQ(x.layer, y.layer) << what;
    EXPECT_EQ(x.floating, y.floating) << what;
    ASSERT_NE(x.net, nullptr) << what;
    ASSERT_NE(y.net, nullptr) << what;
    EXPECT_EQ(x.net->name, y.net->name) << what;
    expect_same_shape(x, y, what, tolerance);
  }
  // Links: each net lists the blocks at the same positions of the deque, and
  // each of them points back at it.
  std::unordered_map<const wire_block*, std::size_t> at_a, at_b;
  for (std::size_t k = 0; k < a.wire_blocks.size(); ++k) at_a[&a.wire_blocks[k]] = k;
  for (std::size_t k = 0; k < b.wire_blocks.size(); ++k) at_b[&b.wire_blocks[k]] = k;
  for (std::size_t n = 0; n < b.wire_nets.size(); ++n) {
    for (std::size_t j = 0; j < b.wire_nets[n].blocks.size(); ++j) {
      const wire_block* blk = b.wire_nets[n].blocks[j];
      EXPECT_EQ(blk->net, &b.wire_nets[n]);
      EXPECT_EQ(at_a.at(a.wire_nets[n].blocks[j]), at_b.at(blk)) << "net " << n << " block " << j;
    }
  }
  for (std::size_t n = 0; n < a.medium_nets.size(); ++n) {
    EXPECT_EQ(a.medium_nets[n].name, b.medium_nets[n].name) << "medium " << n;
    expect_near_float(a.medium_nets[n].diel.value, b.medium_nets[n].diel.value, "diel");
    ASSERT_EQ(a.medium_nets[n].blocks.size(), b.medium_nets[n].blocks.size()) << "medium " << n;
    for (const medium_block* blk : b.medium_nets[n].blocks) EXPECT_EQ(blk->net, &b.medium_nets[n]);
  }
  for (std::size_t k = 0; k < a.medium_blocks.size(); ++k) {
    expect_same_shape(a.medium_blocks[k], b.medium_blocks[k], "medium block " + std::to_string(k), tolerance);
    if (match.medium_side_tans) {
      EXPECT_EQ(a.medium_blocks[k].side_tan, b.medium_blocks[k].side_tan);
    }
    EXPECT_EQ(a.medium_blocks[k].net->name, b.medium_blocks[k].net->name);
  }
  ASSERT_EQ(a.plate_mediums.size(), b.plate_mediums.size());
  for (std::size_t n = 0; n < a.plate_mediums.size(); ++n) {
    EXPECT_EQ(a.plate_mediums[n].name, b.plate_mediums[n].name);
    EXPECT_TRUE(same_length(a.plate_mediums[n].z_top, b.plate_mediums[n].z_top, tolerance));
    expect_near_float(a.plate_mediums[n].diel.value, b.plate_mediums[n].diel.value, "plate diel");
  }
  EXPECT_EQ(a.capacitance_tasks, b.capacitance_tasks);
  EXPECT_EQ(a.layer_types, b.layer_types);
  EXPECT_EQ(a.layer_names, b.layer_names);
  ASSERT_EQ(a.layer_wmins.size(), b.layer_wmins.size());
  for (std::size_t k = 0; k < a.layer_wmins.size(); ++k)
    EXPECT_TRUE(same_length(a.layer_wmins[k], b.layer_wmins[k], tolerance));
  EXPECT_EQ(a.boundary, b.boundary);
  expect_same_box(a.window, b.window, "window", tolerance);
  EXPECT_EQ(a.window_name, b.window_name);
  if (!match.parameters) return;
  EXPECT_EQ(a.log_file, b.log_file);
  EXPECT_EQ(a.out_file, b.out_file);
  expect_near_float(a.self_precision, b.self_precision, "self-precision");
  expect_near_float(a.coupling_precision, b.coupling_precision, "coupling-precision");
  expect_near_float(a.c_ratio, b.c_ratio, "c-ratio");
  expect_near_float(a.blk_self_precision, b.blk_self_precision, "blk-self-precision");
  expect_near_float(a.blk_coupling_precision, b.blk_coupling_precision, "blk-coupling-precision");
  expect_near_float(a.b_net_ratio, b.b_net_ratio, "b-net-ratio");
  expect_near_float(a.b_ratio, b.b_ratio, "b-ratio");
  expect_near_float(a.outmincap, b.outmincap, "outmincap");
  EXPECT_EQ(a.thread_num, b.thread_num);
  EXPECT_EQ(a.walk_type, b.walk_type);
  EXPECT_EQ(a.seed, b.seed);
  EXPECT_EQ(a.spice, b.spice);
}

}  // namespace torva::internal
