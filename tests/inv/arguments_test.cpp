#include <gmock/gmock.h>

#include "blib/blib_cert.h"
#include "blib/blib_res.h"
#include "cert/cert_sign.h"
#include "common/qlib/qfile_itr.h"
#include "inv/inv_cfci.h"
#include "scan/scan_filetype.h"
#include "utl/utl_user.h"

// Of this component and all below it. Each call misses the argument that it must name, and is right in those before.
TEST(Arguments, TheFirstThatIsMissingIsNamed) {
  blib_bin image;
  qfile_itr walk{};
  std::uint32_t word = 0;
  const auto* certificate = reinterpret_cast<const cert_context*>(&word);
  const auto each = [](std::vector<qerr_t> codes, qerr_t code) { EXPECT_THAT(codes, ::testing::Each(code)); };
  each({blib_bin_open(nullptr, nullptr, BLIB_READ, 0), blib_bin_get_buf(nullptr, &word, 0, 1),
        blib_bin_get_authenticode_table_alloc(nullptr, nullptr), blib_res_get_dir_entry(nullptr, 0, nullptr),
        cert_sign_get_signed_file_cert_context(nullptr, 1, nullptr), cert_utl_get_cert_hash(nullptr, nullptr),
        cert_utl_get_cert_pub_key_hash(nullptr, nullptr), inv_get_cfci_alloc(nullptr, nullptr, nullptr, 0),
        utl_get_volume_path_alloc(nullptr, nullptr), utl_get_full_long_name_alloc(nullptr, nullptr),
        qfile_itr_open_ex(nullptr, u"x", 0), qfile_open(nullptr, u"x", 0), qfile_get_info_by_name(nullptr, nullptr),
        qfile_delete(nullptr), qfile_mkdir(nullptr), qfile_rename(nullptr, u"x"), qfile_copy(nullptr, u"x", 0),
        utl_get_long_name_alloc(nullptr, nullptr, 0), utl_split_existing_path(nullptr, nullptr, nullptr)},
       QERR_ARG1);
  qfile_t file = QFILE_INVALID;
  each({blib_bin_open(u"x", nullptr, BLIB_READ, 0), blib_bin_get_buf(&image, nullptr, 0, 1),
        blib_bin_get_authenticode_table_alloc(&image, nullptr), cert_utl_get_cert_hash(certificate, nullptr),
        cert_utl_get_cert_pub_key_hash(certificate, nullptr), inv_get_cfci_alloc(u"x", nullptr, nullptr, 0),
        utl_get_volume_path_alloc(u"x", nullptr), utl_get_full_long_name_alloc(u"x", nullptr),
        qfile_itr_open_ex(&walk, nullptr, 0), qfile_open(&file, nullptr, 0), qfile_get_info_by_name(u"x", nullptr),
        qfile_rename(u"x", nullptr), qfile_copy(u"x", nullptr, 0), utl_get_long_name_alloc(u"x", nullptr, 0),
        utl_split_existing_path(u"x", nullptr, nullptr)},
       QERR_ARG2);
  each({cert_sign_get_signed_file_cert_context(u"x", 1, nullptr), blib_res_get_dir_entry(&image, 0, nullptr)},
       QERR_ARG3);
}
