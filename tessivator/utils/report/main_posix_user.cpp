// Process entry point; arguments are bytes.
#include <signal.h>

#include "common/qlib/qstr_name.h"
#include "utils/report/report_cli.h"

int main(int argc, char** argv) {
  // A limit on the size of files (ulimit -f) fails the write that meets it, not the program.
  (void)::signal(SIGXFSZ, SIG_IGN);
  try {
    return qstr_name_run(argc, argv, reportMain);
  } catch (...) {
    return 2;
  }
}
