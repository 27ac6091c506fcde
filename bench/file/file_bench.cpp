// Buffered file throughput: our buffered files against stdio (fwrite/fread
// with the same buffer size) and std::fstream, writing and reading a 16 MiB
// file in small (16-byte) and page-sized (4 KiB) pieces. A ratio table
// (time ours / peer; below 1 = ours faster) closes the run.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "lfi.h"
#include "lpm.h"
#include "slt.h"
#include "bench/support/ratio.h"

namespace {

constexpr size_t kFile = 16u << 20;
constexpr size_t kBuf = 65536;

lcorectx *g_ctx = nullptr;

std::string file_name() { return "/tmp/kel_file_bench_" + std::to_string(slsipid()) + ".dat"; }

void ensure_input() {
  static bool done = false;
  if (done) return;
  std::ofstream o(file_name(), std::ios::binary);
  std::string block(1 << 20, 'k');
  for (size_t i = 0; i < kFile; i += block.size()) o.write(block.data(), static_cast<std::streamsize>(block.size()));
  done = true;
}

void write_ours(benchmark::State &state) {
  size_t piece = static_cast<size_t>(state.range(0));
  std::vector<char> data(piece, 'a');
  std::string name = file_name() + ".w";
  for (auto _ : state) {
    lfifile *f = lfiopen(g_ctx->lfictx, name.c_str(), LFI_WRITE, kBuf);
    for (size_t i = 0; i < kFile; i += piece) lfiwrite(g_ctx->lfictx, f, data.data(), piece);
    lficlose(g_ctx->lfictx, f);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFile));
}

void write_stdio(benchmark::State &state) {
  size_t piece = static_cast<size_t>(state.range(0));
  std::vector<char> data(piece, 'a');
  std::string name = file_name() + ".w";
  for (auto _ : state) {
    FILE *f = fopen(name.c_str(), "wb");
    setvbuf(f, nullptr, _IOFBF, kBuf);
    for (size_t i = 0; i < kFile; i += piece) fwrite(data.data(), 1, piece, f);
    fclose(f);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFile));
}

void write_fstream(benchmark::State &state) {
  size_t piece = static_cast<size_t>(state.range(0));
  std::vector<char> data(piece, 'a');
  std::string name = file_name() + ".w";
  std::vector<char> buf(kBuf);
  for (auto _ : state) {
    std::ofstream o;
    o.rdbuf()->pubsetbuf(buf.data(), static_cast<std::streamsize>(buf.size()));
    o.open(name, std::ios::binary);
    for (size_t i = 0; i < kFile; i += piece) o.write(data.data(), static_cast<std::streamsize>(piece));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFile));
}

void read_ours(benchmark::State &state) {
  ensure_input();
  size_t piece = static_cast<size_t>(state.range(0));
  std::vector<char> data(piece);
  for (auto _ : state) {
    lfifile *f = lfiopen(g_ctx->lfictx, file_name().c_str(), LFI_READ, kBuf);
    while (lfiread(g_ctx->lfictx, f, data.data(), piece) > 0) benchmark::DoNotOptimize(data.data());
    lficlose(g_ctx->lfictx, f);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFile));
}

void read_stdio(benchmark::State &state) {
  ensure_input();
  size_t piece = static_cast<size_t>(state.range(0));
  std::vector<char> data(piece);
  for (auto _ : state) {
    FILE *f = fopen(file_name().c_str(), "rb");
    setvbuf(f, nullptr, _IOFBF, kBuf);
    while (fread(data.data(), 1, piece, f) > 0) benchmark::DoNotOptimize(data.data());
    fclose(f);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFile));
}

void read_fstream(benchmark::State &state) {
  ensure_input();
  size_t piece = static_cast<size_t>(state.range(0));
  std::vector<char> data(piece);
  std::vector<char> buf(kBuf);
  for (auto _ : state) {
    std::ifstream in;
    in.rdbuf()->pubsetbuf(buf.data(), static_cast<std::streamsize>(buf.size()));
    in.open(file_name(), std::ios::binary);
    while (in.read(data.data(), static_cast<std::streamsize>(piece)) || in.gcount() > 0)
      benchmark::DoNotOptimize(data.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kFile));
}

}  // namespace

BENCHMARK(write_ours)->Arg(16)->Arg(4096)->UseRealTime();
BENCHMARK(write_stdio)->Arg(16)->Arg(4096)->UseRealTime();
BENCHMARK(write_fstream)->Arg(16)->Arg(4096)->UseRealTime();
BENCHMARK(read_ours)->Arg(16)->Arg(4096)->UseRealTime();
BENCHMARK(read_stdio)->Arg(16)->Arg(4096)->UseRealTime();
BENCHMARK(read_fstream)->Arg(16)->Arg(4096)->UseRealTime();

int main(int argc, char **argv) {
  g_ctx = lpminit();
  if (g_ctx == nullptr) return 1;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  kelbench::RatioReporter rep;
  benchmark::RunSpecifiedBenchmarks(&rep);
  benchmark::Shutdown();
  std::printf("\nratio lfi / peer (time; below 1 = ours faster)\n%-16s %10s %10s\n", "case", "/ stdio", "/ fstream");
  for (const char *op : {"write", "read"})
    for (const char *arg : {"16", "4096"}) {
      std::string ours = rep.named(std::string(op) + "_ours/" + arg + "/");
      double stdio = rep.ratio("file", ours, rep.named(std::string(op) + "_stdio/" + arg + "/"));
      double fstr = rep.ratio("file", ours, rep.named(std::string(op) + "_fstream/" + arg + "/"));
      std::string label = std::string(op) + " " + arg + " B";
      std::printf("%-16s %10.2f %10.2f\n", label.c_str(), stdio, fstr);
    }
  rep.print_ratios();
  std::remove(file_name().c_str());
  std::remove((file_name() + ".w").c_str());
  lpmterm(g_ctx);
  return 0;
}
