// What one image costs before its bytes are digested: open and close, the certificate table, the resource walk. Set
// TESSIVATOR_FIXTURES to the fixtures' folder.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

#include "blib/blib_cert.h"
#include "blib/blib_res.h"
#include "common/qlib/qlib.h"
#include "common/qlib/qstr.h"

namespace {

qerr_t visit(std::uint32_t, const void* data, std::uint32_t, std::uint32_t, std::uint32_t*, void*, std::size_t) {
  benchmark::DoNotOptimize(data);
  return QERR_OK;
}

std::u16string signed_image() {
  const char* const folder = std::getenv("TESSIVATOR_FIXTURES");
  return qstr_to_wide(std::string(folder == nullptr ? "." : folder) + "/images/exe64_rsa.exe");
}

// By path: the file's own open and close included. By handle: the file is open already.
void open_by_path(benchmark::State& state) {
  const std::u16string path = signed_image();
  for ([[maybe_unused]] const auto _ : state) {
    blib_bin* image = nullptr;
    if (blib_bin_open(path.c_str(), &image, BLIB_READ, 0) != QERR_OK) state.SkipWithError("no image");
    (void)blib_bin_close(image);
  }
}
BENCHMARK(open_by_path);

void open_by_handle(benchmark::State& state) {
  const std::u16string path = signed_image();
  QfileOwner file;
  if (qfile_open(file.out(), path.c_str(), QFILE_READ) != QERR_OK) state.SkipWithError("no file");
  for ([[maybe_unused]] const auto _ : state) {
    blib_bin* image = nullptr;
    if (blib_bin_open_by_handle(file.get(), path.c_str(), &image, BLIB_READ, 0) != QERR_OK) {
      state.SkipWithError("no image");
    }
    (void)blib_bin_close_by_handle(image);
  }
}
BENCHMARK(open_by_handle);

BlibBinOwner opened(benchmark::State& state) {
  blib_bin* image = nullptr;
  if (blib_bin_open(signed_image().c_str(), &image, BLIB_READ, 0) != QERR_OK) state.SkipWithError("no image");
  return BlibBinOwner(image);
}

void certificate_table(benchmark::State& state) {
  const BlibBinOwner image = opened(state);
  for ([[maybe_unused]] const auto _ : state) {
    blib_authenticode_list* list = nullptr;
    if (blib_bin_get_authenticode_signature_buf_alloc(image.get(), &list) != QERR_OK) state.SkipWithError("no table");
    blib_bin_free_authenticode_signature_buf(list);
  }
}
BENCHMARK(certificate_table);

void resource_walk(benchmark::State& state) {
  const BlibBinOwner image = opened(state);
  for ([[maybe_unused]] const auto _ : state) {
    blib_res_section section{};
    std::uint32_t stop = 0;
    if (blib_res_get_section(image.get(), &section) != QERR_OK ||
        blib_res_walk(image.get(), &section, BLIB_RES_VERSION, visit, &stop, nullptr, 0) != QERR_OK) {
      state.SkipWithError("no resources");
    }
  }
}
BENCHMARK(resource_walk);

}  // namespace

int main(int argc, char** argv) {
  if (qlib_lib_init_basic() != QERR_OK) return 1;
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  qlib_lib_fini_basic();
  return 0;
}
