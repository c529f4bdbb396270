#include "utils/report/report_merge_certificates.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/provider.h>
#include <openssl/x509.h>

#include <algorithm>
#include <memory>
#include <new>

#include "common/qlib/qerr.h"
#include "common/qlib/qfile.h"
#include "common/qlib/qmem.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr.h"
#include "utils/report/report_text.h"

namespace {

using BioPtr = std::unique_ptr<BIO, FreeWith<BIO_free>>;

struct OpensslFree {
  void operator()(void* memory) const noexcept { OPENSSL_free(memory); }
};

// Decodes certificates without their public keys, which are not looked at and could be made to take for ever.
class KeylessDecoder {
 public:
  KeylessDecoder() : context_(OSSL_LIB_CTX_new()) {
    if (context_) none_.reset(OSSL_PROVIDER_load(context_.get(), "null"));
    if (!none_) throw std::bad_alloc();
  }
  [[nodiscard]] bool isCertificate(const unsigned char* der, long size) const noexcept {
    const unsigned char* end = der;
    X509* found = X509_new_ex(context_.get(), nullptr);
    const bool decoded = found != nullptr && d2i_X509(&found, &end, size) != nullptr && end - der == size;
    X509_free(found);
    return decoded;
  }

 private:
  std::unique_ptr<OSSL_LIB_CTX, FreeWith<OSSL_LIB_CTX_free>> context_;
  std::unique_ptr<OSSL_PROVIDER, FreeWith<OSSL_PROVIDER_unload>> none_;
};

// One certificate in PEM and not a byte more: whoever made the folder cannot have us hand on anything else.
bool isOneCertificate(const std::string& text) {
  static const KeylessDecoder decoder;
  const BioPtr in(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
  const BioPtr again(BIO_new(BIO_s_mem()));
  if (!in || !again) throw std::bad_alloc();
  char* name = nullptr;
  char* header = nullptr;
  unsigned char* data = nullptr;
  long size = 0;
  ERR_set_mark();
  bool good = PEM_read_bio(in.get(), &name, &header, &data, &size) == 1;
  const std::unique_ptr<char, OpensslFree> nameOwner(name);
  const std::unique_ptr<char, OpensslFree> headerOwner(header);
  const std::unique_ptr<unsigned char, OpensslFree> dataOwner(data);
  good = good && std::string_view(name) == PEM_STRING_X509 && decoder.isCertificate(data, size) &&
         PEM_write_bio(again.get(), name, "", data, size) > 0;
  ERR_pop_to_mark();
  if (!good) return false;
  char* written = nullptr;
  const long length = BIO_get_mem_data(again.get(), &written);
  return length > 0 && text == std::string_view(written, static_cast<std::size_t>(length));
}

// What is wrong with the file, empty for nothing.
std::string readOneCertificate(const std::u16string& path, std::string& text) {
  std::string problem = readCertificateFile(path, text);
  if (problem.empty() && !isOneCertificate(text)) problem = "its file holds no certificate, or more than one";
  return problem;
}

}  // namespace

void MergedCertificates::note(std::uint32_t folder, const std::vector<CertificateName>& names) {
  ++record_;
  for (const CertificateName& name : names) {
    std::vector<Use>& uses = uses_[name];
    const auto found = std::find_if(uses.begin(), uses.end(), [&](const Use& use) { return use.folder == folder; });
    if (found != uses.end()) {
      found->lastRecord = record_;
    } else {
      uses.push_back({folder, record_});
    }
  }
}

void MergedCertificates::copyTo(const std::u16string& target) {
  std::vector<const CertificateName*> names;
  names.reserve(uses_.size());
  for (const auto& [name, uses] : uses_) names.push_back(&name);
  std::sort(names.begin(), names.end(), [](const auto* one, const auto* other) { return *one < *other; });
  for (const CertificateName* const name : names) copyOne(target, *name, uses_.find(*name)->second);
}

void MergedCertificates::copyOne(const std::u16string& target, const CertificateName& name, std::vector<Use>& uses) {
  std::u16string file = qstr_to_wide(bytesToHex(name));
  file += u".cer";
  const std::u16string path = qpath_join(target, file);
  std::string before;
  if (!readOneCertificate(path, before).empty()) before.clear();
  std::sort(uses.begin(), uses.end(),
            [](const Use& one, const Use& other) { return one.lastRecord < other.lastRecord; });
  std::string content = before;
  std::string read;
  for (const Use& use : uses) {
    const std::u16string& folder = folders_[use.folder];
    const std::u16string source = qpath_join(folder, file);
    if (const std::string problem = readOneCertificate(source, read); !problem.empty()) {
      warnings_.tell(source + u": " + qstr_to_wide(problem));
      continue;
    }
    if (!content.empty() && content != read) {
      warnings_.tell(
          std::u16string(path).append(u": another certificate of this name was replaced by that of ").append(folder));
    }
    content.swap(read);
  }
  if (content == before) return;
  const qerr_t code = qfile_write_whole(path.c_str(), content.data(), content.size(), 0);
  if (code != QERR_OK) throw ReportError(path + u": " + qerr_get_string(code));
}
