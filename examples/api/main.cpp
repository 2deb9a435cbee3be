// A client of torva in one page: read a layout, derive its fields, build a
// space manager, ask for the nearest conductor from many threads, load tables.
//   api_example LAYOUT
#include <torva/torva.h>

#include <cstdio>
#include <memory>
#include <random>
#include <thread>
#include <vector>

int main(int argc, char** argv) {
  using namespace torva;
  if (argc != 2) {
    std::fprintf(stderr, "usage: api_example LAYOUT\n");
    return 2;
  }

  // 1. The library writes on four channels, without a test for null: install them first.
  logger& log = logger::instance();
  log.set_info(std::make_unique<sea::file_writer>(stdout));
  log.set_detail(std::make_unique<sea::file_writer>(stderr));
  log.set_warning(std::make_unique<sea::file_writer>(stderr));
  log.set_error(std::make_unique<sea::file_writer>(stderr));

  try {
    // 2. Read the file, text or binary. A syntax error returns false after a
    //    line on the error channel; geometry that can't be held throws.
    // [readme-begin]
    circuit_layout layout;
    Cap3dParser parser(layout.data, /*incline_slices=*/4, /*allow_floating=*/true, /*cuboids_only=*/false);
    if (!parser.parse(argv[1], /*dump_file=*/"")) return 1;

    // 3. Derive the fields the search reads (block list, margins, critical box, ...).
    //    From here on nobody writes to the layout.
    derive_layout_fields(layout);

    // 4. Build the search structure. The configure and the layout must outlive it.
    configure config;
    config.spacemgr_type = 10;  // let the library choose a pair by the layout's size
    config.thread_count = 2;    // threads for building a large grid
    space_manager space;
    space.initialize(config, layout);

    // 5. Walkers query from many threads at once, each with its own two caches.
    const cuboid_t box = layout.data.window;
    std::vector<int> named(4);
    std::vector<std::thread> walkers;
    for (int w = 0; w < 4; ++w) {
      walkers.emplace_back([&, w] {
        candidate_list_cache first, second;  // one per strategy of the pair
        std::mt19937_64 rng(w);
        std::uniform_real_distribution<double> unit(0.0, 1.0);
        for (int i = 0; i < 10000; ++i) {
          point3 p;
          for (int k = 0; k < 3; ++k) p[k] = box.lower[k] + (box.upper[k] - box.lower[k]) * unit(rng);
          const nearest_result r = space->nearest(p, /*limit=*/1e9, first, second);
          if (r.block != nullptr) ++named[w];  // else the wall of the search answered
        }
      });
    }
    for (std::thread& t : walkers) t.join();
    for (int w = 0; w < 4; ++w) std::printf("walker %d: 10000 queries, %d named a block\n", w, named[w]);

    candidate_list_cache first, second;
    const point3 centre = operate(box.lower, box.upper, [](auto a, auto b) { return (a + b) * 0.5; });
    const nearest_result r = space->nearest(centre, 1e9, first, second);
    if (r.block != nullptr)
      std::printf("from the centre: net %s, block %s, at %.6f\n", r.block->net->name.c_str(), r.block->name.c_str(),
                  r.distance.value);

    // 6. Load the tables once. Mode 0 takes the built-in first table alone; a
    //    real run sets table_mode and the table_dir_* folders, and gives the
    //    stack's dielectric values with five filler entries before and six after.
    auto tables = std::make_unique<table_database>();
    dielectric_layers stack;
    stack.diels = {1, 1, 1, 1, 1, 3.9, 2.5, 1, 1, 1, 1, 1, 1};
    stack.layer_slots.assign(stack.diels.size(), 0.0);
    config.table_mode = 0;
    tables->load(config, stack, /*force=*/false);
    // [readme-end]
    std::printf("first table: %zu cells, last %.1f\n", table_database::single_oct_face_group::size,
                tables->first_group.first_table[table_database::single_oct_face_group::size - 1]);
  } catch (const sea::base_error& e) {
    std::fprintf(stderr, "torva: %s\n", e.what());
    return 1;
  }
  return 0;
}
