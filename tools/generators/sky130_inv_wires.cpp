// Writes examples/sky130_inv_wires.gds: the wiring of a small inverter on
// sky130's met1 and met2 over the substrate, 12 x 10 um. Rails vss and vdd
// on met1; the input on met2 dropping to a met1 stub; the output an L on
// met1 rising to met2; a met2 wire across both rails that no label names.
// The vias are a cell placed twice (a cut with its landing pads), so the
// file has a little hierarchy. Labels stand on the met1 and met2 label
// layers, pins on the pin layers.
//
//   sky130_inv_wires OUT.gds
#include <cstdio>

#include "torva_testing/gds_writer.h"

int main(int argc, char** argv) {
  using namespace torva::testing;
  if (argc != 2) {
    std::fprintf(stderr, "usage: sky130_inv_wires OUT.gds\n");
    return 2;
  }
  // sky130's pairs: met1 68/20 (pin 68/16, label 68/5), via 68/44, met2 69/20 (pin 69/16, label 69/5).
  const int met1 = 68, met2 = 69, drawing = 20, pin = 16, label = 5, via = 44;
  gds_writer w;
  w.begin_library("SKY130_INV_WIRES");  // database unit 1 nm

  // A cut of via (0.15 um) with its met1 and met2 landing pads (0.3 um, as wide
  // as the wires it joins), centred on the origin.
  w.begin_cell("via_m1m2");
  w.rectangle(met1, via, -75, -75, 75, 75);
  w.rectangle(met1, drawing, -150, -150, 150, 150);
  w.rectangle(met2, drawing, -150, -150, 150, 150);
  w.end_cell();

  w.begin_cell("inv_wires");
  // Rails.
  w.rectangle(met1, drawing, 0, 0, 12000, 480).rectangle(met1, pin, 0, 0, 12000, 480);
  w.text(met1, label, {500, 240}, "vss");
  w.rectangle(met1, drawing, 0, 9520, 12000, 10000).rectangle(met1, pin, 0, 9520, 12000, 10000);
  w.text(met1, label, {500, 9760}, "vdd");
  // The input: met2 down to a met1 stub.
  w.rectangle(met2, drawing, 2000, 1500, 2300, 8500).rectangle(met2, pin, 2000, 7700, 2300, 8300);
  w.text(met2, label, {2150, 8000}, "in");
  w.rectangle(met1, drawing, 1600, 4800, 2700, 5100);
  w.sref("via_m1m2", {2150, 4950});
  // The output: an L on met1, up to met2 at its end.
  w.boundary(met1, drawing, {{6000, 2000}, {6400, 2000}, {6400, 4800}, {10000, 4800}, {10000, 5200}, {6400, 5200},
                             {6400, 8000}, {6000, 8000}});
  w.rectangle(met2, drawing, 9600, 1500, 9900, 8500).rectangle(met2, pin, 9600, 1700, 9900, 2300);
  w.text(met2, label, {9750, 2000}, "out");
  w.sref("via_m1m2", {9750, 5000});
  // A met2 wire across both rails, joined to nothing and named by where it lies.
  w.rectangle(met2, drawing, 11000, 0, 11300, 10000);
  w.end_cell();

  w.end_library();
  w.save(argv[1]);
  return 0;
}
