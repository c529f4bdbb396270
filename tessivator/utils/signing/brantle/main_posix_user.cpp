// Process entry point; arguments are bytes.
#include "common/qlib/qstr_name.h"
#include "utils/signing/brantle/brantle_cli.h"

int main(int argc, char** argv) {
  try {
    return qstr_name_run(argc, argv, brantle_cli_run);
  } catch (...) {
    return -1;
  }
}
