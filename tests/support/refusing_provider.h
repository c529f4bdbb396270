// A file provider that has nothing: what a stand-in does not offer is not found.
#pragma once

#include "common/qlib/qfile_provider.h"

class refusing_provider : public qfile_provider {
 public:
  using Object = std::unique_ptr<qfile_object>;
  using Search = std::unique_ptr<qfile_search>;
  qsys_status open(const qchar*, std::uint32_t, Object&) override { return missing(); }
  qsys_status create_exclusive(const qchar*, Object&) override { return missing(); }
  qsys_status search(const qchar*, Search&) override { return missing(); }
  qsys_status list(const qfile_listing&, Search&) override { return missing(); }
  qsys_status exists(const qchar*) override { return missing(); }
  qsys_status info(const qchar*, qfile_info&) override { return missing(); }
  qsys_status rename(const qchar*, const qchar*) override { return missing(); }
  qsys_status remove(const qchar*) override { return missing(); }
  qsys_status make_directory(const qchar*) override { return missing(); }
  qsys_status remove_directory(const qchar*) override { return missing(); }
  qsys_status copy(const qchar*, const qchar*, bool) override { return missing(); }
  qsys_status compress(const qchar*) override { return missing(); }
  qsys_status full_path(const qchar* path, std::u16string& out) override {
    out = path;
    return {};
  }

 protected:
  static qsys_status missing() { return {QERR_NOT_FOUND, qsys_condition::not_found}; }
};
