// The certificate files of several folders as those of one.
#pragma once

#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "utils/report/report_certificate.h"
#include "utils/report/report_warnings.h"

// Notes first which records list which certificates, then copies the files. Keeps about 100 bytes for each name, and 16
// more for each folder that has it.
class MergedCertificates {
 public:
  MergedCertificates(const std::vector<std::u16string>& folders, ReportWarnings& warnings)
      : folders_(folders), warnings_(warnings) {}

  // The next record's: `folder` is the index of where it comes from.
  void note(std::uint32_t folder, const std::vector<CertificateName>& names);

  // Writes into the folder `target`. As in one scan, of several certificates under one name that of the last record
  // stays, and a line tells of the others. A file that is missing, no regular file, or holds anything but one
  // certificate as a scan writes it is told and passed over. Throws ReportError when a file cannot be written.
  void copyTo(const std::u16string& target);

 private:
  struct Use {
    std::uint32_t folder;
    std::uint64_t lastRecord;
  };
  struct NameHash {
    std::size_t operator()(const CertificateName& name) const noexcept {
      std::size_t hash = 0;  // a name is a digest already
      std::memcpy(&hash, name.data(), sizeof(hash));
      return hash;
    }
  };
  void copyOne(const std::u16string& target, const CertificateName& name, std::vector<Use>& uses);

  const std::vector<std::u16string>& folders_;
  ReportWarnings& warnings_;
  std::uint64_t record_ = 0;
  std::unordered_map<CertificateName, std::vector<Use>, NameHash> uses_;
};
