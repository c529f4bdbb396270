// What the catalogues of a survey list: a file whose digest is among it is signed by its catalogue.
#pragma once

#include <string>
#include <vector>

#include "utils/report/report_details.h"
#include "utils/report/report_path_set.h"
#include "utils/report/report_warnings.h"

class CatalogueBook {
 public:
  // Reads the details once from end to end. Of a survey with more than 2,097,152 members the first ones are known, and
  // `warnings` tell so.
  void read(ReportDetails& details, ReportWarnings& warnings);

  // The name of a signed catalogue that lists the file; empty when there is none. An image is listed by its
  // Authenticode digest, which only some details hold; anything else by that of its bytes.
  [[nodiscard]] std::string catalogueOf(const details_file& file) const;

 private:
  void addMembers(const details_members& part, ReportWarnings& warnings);

  ReportPathSet members_;           // digest -> number of the catalogue, from 1
  std::vector<std::string> names_;  // empty: without signers
  std::size_t count_ = 0;
  std::uint64_t ordinal_ = 0;  // of the catalogue whose members came last
  bool isOpen_ = false;        // its own line has not come
  bool isFull_ = false;
};
