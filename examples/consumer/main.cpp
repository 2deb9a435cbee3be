// The smallest client: installs the logger's channels and uses the library.
#include <torva/torva.h>

#include <cstdio>
#include <memory>

int main() {
  auto& log = torva::logger::instance();
  log.set_info(std::make_unique<torva::sea::file_writer>(stdout));
  log.set_detail(std::make_unique<torva::sea::file_writer>(stderr));
  log.set_warning(std::make_unique<torva::sea::file_writer>(stderr));
  log.set_error(std::make_unique<torva::sea::file_writer>(stderr));

  torva::sea::double_wrapper a = 1.0, b = 1.0 + 5e-11;
  (*log.info)("torva consumer: 1.0 %s 1.0+5e-11\n", a == b ? "==" : "!=");
  return a == b ? 0 : 1;
}
