// The four shipped stacks load, and a handful of their numbers per PDK match
// the PDK sheets: heights and thicknesses as the sheets list them, and the
// placement of coats and rings that the sheets derive ("ring(+d) z a -> b").
#include <gtest/gtest.h>

#include <string>

#include "torva/import/process_stack.h"

namespace torva {
namespace {

struct shape_count {
  std::size_t conductors, vias, planar, wrapped;
};

shape_count count(const process_stack& s) {
  std::size_t planar = 0;
  for (const dielectric_layer& d : s.dielectrics) planar += d.kind == dielectric_kind::planar;
  return {s.conductors.size(), s.vias.size(), planar, s.dielectrics.size() - planar};
}

void expect_layer(const process_stack& s, const char* name, gds_pair drawing, double z, double thickness) {
  const std::size_t i = s.conductor_index(name);
  ASSERT_NE(i, process_stack::npos) << name;
  const conductor_layer& c = s.conductors[i];
  EXPECT_FALSE(c.drawing.derived()) << name;
  EXPECT_EQ(c.drawing.pair, drawing) << name;
  EXPECT_NEAR(c.z, z, 1e-9) << name;
  EXPECT_NEAR(c.thickness, thickness, 1e-9) << name;
}

// The target of via `name` that stands on `below`, and its z range.
void expect_via(const process_stack& s, const char* name, const char* below, double z0, double z1) {
  const std::size_t v = s.via_index(name);
  ASSERT_NE(v, process_stack::npos) << name;
  for (const via_target& t : s.vias[v].targets)
    if (s.conductors[t.below].name == below) {
      EXPECT_NEAR(t.z_bottom, z0, 1e-9) << name << " on " << below;
      EXPECT_NEAR(t.z_top, z1, 1e-9) << name << " on " << below;
      return;
    }
  ADD_FAILURE() << name << " has no target on " << below;
}

// The coat or ring `name`: its outer edge grown from the metal's shapes, the
// z range over that ring, and its film elsewhere.
void expect_shell(const process_stack& s, const char* name, double grow, double z0, double z1, double field0,
                  double field1) {
  for (const wrap_shell& w : wrap_shells(s))
    if (s.dielectrics[w.dielectric].name == name) {
      EXPECT_NEAR(w.outer_grow, grow, 1e-9) << name;
      EXPECT_NEAR(w.z_bottom, z0, 1e-9) << name;
      EXPECT_NEAR(w.outer_top, z1, 1e-9) << name;
      EXPECT_NEAR(w.field_bottom, field0, 1e-9) << name;
      EXPECT_NEAR(w.field_top, field1, 1e-9) << name;
      return;
    }
  ADD_FAILURE() << "no coat " << name;
}

void expect_common(const process_stack& s, const char* name, double sub0, double sub1) {
  EXPECT_EQ(s.name, name);
  EXPECT_EQ(s.substrate.kind, substrate_kind::conductor);
  EXPECT_NEAR(s.substrate.z_bottom, sub0, 1e-9);
  EXPECT_NEAR(s.substrate.z_top, sub1, 1e-9);
  EXPECT_NEAR(s.substrate.hole_grow, 1.0, 1e-9);
  EXPECT_EQ(s.substrate.holes_under.size(), 2u);
  EXPECT_DOUBLE_EQ(s.window_margin, 8.0);
  EXPECT_FALSE(s.corrections.empty());
  for (const dielectric_layer& d : s.dielectrics) EXPECT_GE(d.permittivity, 1.0) << d.name;
}

TEST(shipped_stacks, sky130A_matches_its_sheet) {
  const process_stack s = load_stack("sky130A");
  expect_common(s, "sky130A", -0.43, -0.10);
  const shape_count n = count(s);
  // nsd, psd, poly, li1, met1..met5 once each, capm, capm2; six drawn via layers.
  EXPECT_EQ(n.conductors, 11u);
  EXPECT_EQ(n.vias, 6u);
  EXPECT_EQ(n.planar, 9u);   // the gap over the substrate, fox, psg, nild2..nild6, air
  EXPECT_EQ(n.wrapped, 9u);  // iox, spnit, lint, nild3c, nild4c, capild over met3 and met4, topox, topnit
  expect_layer(s, "poly", {66, 20}, 0.3262, 0.18);
  expect_layer(s, "met1", {68, 20}, 1.3761, 0.36);
  expect_layer(s, "met3", {70, 20}, 2.7861, 0.845);
  expect_layer(s, "capm", {89, 44}, 3.6511, 0.10);
  expect_layer(s, "met5", {72, 20}, 5.3711, 1.26);
  EXPECT_EQ(s.conductors[s.conductor_index("met1")].label, (gds_pair{68, 5}));
  expect_via(s, "licon1", "poly", 0.5062, 0.9361);
  expect_via(s, "licon1", "nsd", 0.0, 0.9361);
  expect_via(s, "mcon", "li1", 1.0361, 1.3761);
  expect_via(s, "via3", "met3", 3.6311, 4.0211);
  expect_via(s, "via3", "capm", 3.7511, 4.0211);  // corrected: ends at met4's bottom
  expect_shell(s, "spnit", 0.0491, 0.3262, 0.6272, 0.3262, 0.3262);
  expect_shell(s, "lint", 0.075, 0.9361, 1.1111, 0.9361, 1.0111);
  expect_shell(s, "topnit", 0.4477, 5.3711, 7.2611, 5.3711, 5.7934);
  EXPECT_DOUBLE_EQ(s.dielectrics[s.dielectric_index("fox")].permittivity, 4.632);
  EXPECT_DOUBLE_EQ(s.dielectrics[s.dielectric_index("iox")].permittivity, 3.9);  // corrected from 0.39
}

TEST(shipped_stacks, ihp_sg13g2_matches_its_sheet) {
  const process_stack s = load_stack("ihp-sg13g2");
  expect_common(s, "ihp-sg13g2", -0.28, 0.0);
  const shape_count n = count(s);
  EXPECT_EQ(n.conductors, 11u);  // nsd, psd, GatPoly, Metal1..5, MIM, TopMetal1, TopMetal2
  EXPECT_EQ(n.vias, 8u);         // Cont, Via1..4, TopVia1, Vmim, TopVia2
  EXPECT_EQ(n.planar, 9u);       // fox, ild0..ild4, ildtm1, ildtm2, air
  EXPECT_EQ(n.wrapped, 4u);      // nitride, ismim, pass1, pass2
  expect_layer(s, "GatPoly", {5, 0}, 0.40, 0.16);
  expect_layer(s, "Metal1", {8, 0}, 1.04, 0.42);
  expect_layer(s, "Metal5", {67, 0}, 5.09, 0.49);
  expect_layer(s, "MIM", {36, 0}, 5.62, 0.15);
  expect_layer(s, "TopMetal2", {134, 0}, 11.23, 3.0);
  expect_via(s, "Cont", "GatPoly", 0.56, 1.04);
  expect_via(s, "TopVia1", "Metal5", 5.58, 6.43);
  expect_via(s, "TopVia1", "MIM", 5.77, 6.43);
  expect_via(s, "TopVia2", "TopMetal1", 8.43, 11.23);
  expect_shell(s, "nitride", 0.05, 0.40, 0.61, 0.40, 0.45);
  expect_shell(s, "pass1", 0.3, 11.23, 15.73, 11.23, 12.73);
  // TopMetal2 (3.0) under 1.5 of pass1 and then 0.4 of pass2, as the sheet says it is meant.
  expect_shell(s, "pass2", 0.6, 11.23, 11.23 + 3.0 + 1.5 + 0.4, 12.73, 13.13);
}

TEST(shipped_stacks, ihp_sg13cmos5l_matches_its_sheet) {
  const process_stack s = load_stack("ihp-sg13cmos5l");
  expect_common(s, "ihp-sg13cmos5l", -0.28, 0.0);
  const shape_count n = count(s);
  EXPECT_EQ(n.conductors, 8u);  // nsd, psd, GatPoly, Metal1..4, TopMetal1
  EXPECT_EQ(n.vias, 5u);        // Cont, Via1..3, TopVia1 (added)
  EXPECT_EQ(n.planar, 7u);  // fox, ild0..ild4, air
  EXPECT_EQ(n.wrapped, 3u);  // nitride, pass1, pass2
  expect_layer(s, "Metal4", {50, 0}, 4.06, 0.49);
  expect_layer(s, "TopMetal1", {126, 0}, 5.40, 2.0);
  expect_via(s, "TopVia1", "Metal4", 4.55, 5.40);
  expect_shell(s, "pass1", 0.3, 5.40, 8.90, 5.40, 6.90);
  EXPECT_EQ(s.conductor_index("Metal5"), process_stack::npos);
}

TEST(shipped_stacks, gf180mcuD_matches_its_sheet) {
  const process_stack s = load_stack("gf180mcuD");
  expect_common(s, "gf180mcuD", -0.33, 0.0);
  const shape_count n = count(s);
  EXPECT_EQ(n.conductors, 8u);  // nsd, psd, Poly2, Metal1..5
  EXPECT_EQ(n.vias, 5u);        // Contact, Via1..4
  EXPECT_EQ(n.planar, 7u);      // fox, ild, imd1..4, pass
  EXPECT_EQ(n.wrapped, 1u);     // nit
  expect_layer(s, "Poly2", {30, 0}, 0.32, 0.20);
  expect_layer(s, "Metal1", {34, 0}, 1.23, 0.55);
  expect_layer(s, "Metal5", {81, 0}, 6.13, 1.1925);
  // Corrected: every via spans the gap between the metals (the sheet's gap column).
  expect_via(s, "Contact", "Poly2", 0.52, 1.23);
  expect_via(s, "Via1", "Metal1", 1.78, 2.38);
  expect_via(s, "Via4", "Metal4", 5.23, 6.13);
  expect_shell(s, "nit", 0.05, 0.32, 0.57, 0.32, 0.37);
  EXPECT_NEAR(s.stack_top(), 11.13, 1e-9);
}

}  // namespace
}  // namespace torva
