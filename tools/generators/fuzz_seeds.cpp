// Writes the seed corpora of the fuzzing harnesses into DIR/<harness>/:
// small layouts of every kind from the generator, in text and in binary
// (without the 12 header bytes, which that harness adds itself), polygon
// outlines, and table files of the right and the wrong lengths.
//
//   fuzz_seeds DIR
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "torva/torva.h"

namespace {

using namespace torva;

void put(const std::filesystem::path& dir, const std::string& name, const std::string& bytes) {
  std::filesystem::create_directories(dir);
  std::ofstream(dir / name, std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));
}

std::string polygon_seed(const std::vector<std::pair<int, int>>& outline) {
  std::string s(1, '\0');  // small-integer coordinates, unit scale
  for (auto [x, y] : outline) {
    s.push_back(char(std::int8_t(x)));
    s.push_back(char(std::int8_t(y)));
  }
  return s;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: fuzz_seeds DIR\n");
    return 2;
  }
  auto& log = logger::instance();
  log.set_info(std::make_unique<sea::file_writer>(stderr));
  log.set_detail(std::make_unique<sea::file_writer>(stderr));
  log.set_warning(std::make_unique<sea::file_writer>(stderr));
  log.set_error(std::make_unique<sea::file_writer>(stderr));
  const std::filesystem::path root = argv[1];

  struct recipe {
    const char* name;
    generator_params params;
  };
  std::vector<recipe> recipes;
  auto make = [](layout_kind kind, std::uint64_t blocks, int layers, double poly, double cyl, double incl,
                 bool media) {
    generator_params p;
    p.kind = kind;
    p.blocks = blocks;
    p.layers = layers;
    p.polygon_share = poly;
    p.cylinder_share = cyl;
    p.incline_share = incl;
    p.media = media;
    p.tasks = 2;
    return p;
  };
  recipes.push_back({"bus", make(layout_kind::bus, 4, 1, 0, 0, 0, false)});
  recipes.push_back({"crossing_media", make(layout_kind::crossing, 6, 2, 0, 0, 0, true)});
  recipes.push_back({"polygons", make(layout_kind::mixed, 5, 2, 1.0, 0, 0, false)});
  recipes.push_back({"cylinders", make(layout_kind::bus, 4, 1, 0, 1.0, 0, false)});
  recipes.push_back({"inclines", make(layout_kind::bus, 4, 1, 0, 0, 1.0, false)});
  recipes.push_back({"mixed", make(layout_kind::mixed, 8, 3, 0.3, 0.2, 0.2, true)});

  for (const recipe& r : recipes) {
    const generated_layout layout = generate_layout(r.params);
    put(root / "text_reader", std::string(r.name) + ".cap3d", to_text(layout));
    circuit_layout::raw raw;
    build_layout(layout, raw);
    const std::string binary = to_binary(raw);
    put(root / "binary_reader", std::string(r.name) + ".bin", binary.substr(Cap3dParser::BIN_FLAG.size()));
  }

  const std::filesystem::path poly = root / "convex_decomposition";
  put(poly, "square_cw", polygon_seed({{0, 0}, {0, 2}, {2, 2}, {2, 0}}));
  put(poly, "hexagon", polygon_seed({{2, 0}, {4, 1}, {4, 3}, {2, 4}, {0, 3}, {0, 1}}));
  put(poly, "l_shape", polygon_seed({{0, 0}, {2, 0}, {2, 1}, {1, 1}, {1, 2}, {0, 2}}));
  put(poly, "collinear", polygon_seed({{0, 0}, {1, 0}, {2, 0}}));
  put(poly, "doubling_back", polygon_seed({{0, 0}, {2, 0}, {1, 0}}));
  put(poly, "pinch", polygon_seed({{0, 0}, {2, 0}, {2, 2}, {1, 1}, {0, 2}, {-1, 1}, {1, 1}, {0, 1}}));
  put(poly, "comb", polygon_seed({{0, 0}, {6, 0}, {6, 3}, {5, 3}, {5, 1}, {4, 1}, {4, 3}, {3, 3}, {3, 1},
                                   {2, 1}, {2, 3}, {1, 3}, {1, 1}, {0, 1}}));

  const std::filesystem::path tables = root / "table_loader";
  // Selector byte: kind (mod 5) and fit (div 5): 0 as given, 1 float length, 2 double length.
  std::string row(1 + 24 + 12, '\0');
  row[0] = char(0 + 5 * 0);  // a half-layer weight table of exactly the float length
  float w[3] = {-1.5f, 2.0f, 0.25f};
  std::memcpy(&row[1 + 24], w, sizeof w);
  put(tables, "half_wvt_float", row);
  std::string doubles(1 + 24 + 24, '\0');
  doubles[0] = char(0 + 5 * 0);
  double dw[3] = {1.0, -2.0, 3.5e38 * 10};
  std::memcpy(&doubles[1 + 24], dw, sizeof dw);
  put(tables, "half_wvt_double", doubles);
  put(tables, "gft_fit_float", std::string(1, char(2 + 5 * 1)) + std::string(64, '\x3f'));
  put(tables, "wrong_length", std::string(1, char(1)) + std::string(40, '\0'));
  put(tables, "compressed", std::string(1, char(4)) + std::string(1, char(3)) + std::string(3 * 44 - 1, '\x3e'));
  return 0;
}
