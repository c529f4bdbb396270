// Process entry point: arguments arrive as bytes.
#include "common/qlib/qstr_name.h"
#include "utils/report/report_cli.h"

int main(int argc, char** argv) {
  try {
    return qstr_name_run(argc, argv, reportMain);
  } catch (...) {
    return 2;
  }
}
