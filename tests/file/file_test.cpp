// The file interface against independent oracles: Python's posixpath for
// names, std::fstream / std::filesystem for contents and directories, and
// fault injection for every failure path (tests run as root, so permission
// cannot be denied for real; a full disk cannot be made either).
#include <gtest/gtest.h>
#include <dirent.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kelmsg_kelcore_lfi.h"
#include "lem.h"
#include "lfi.h"
#include "lpm.h"
#include "sl.h"
#include "slt.h"
#include "tests/support/library.h"
#include "tests/support/portable.h"
#include "tests/support/python.h"

namespace fs = std::filesystem;

namespace {

// Builds without fault points cannot drive the injected failures.
bool have_faults() { return slfaultarm(SL_FAULT_MEM, 0, 0) == 0; }

std::string slurp(const std::string &p) {
  std::ifstream in(p, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

class Files : public kel_test::StartedLibrary {
 protected:
  void SetUp() override {
    StartedLibrary::SetUp();
    if (HasFatalFailure()) return;
    fctx = ctx->lfictx;
    dir = fs::temp_directory_path() / ("kelfile_" + std::to_string(slsipid()) + "_" +
                                       ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir);
    fs::create_directories(dir);
    fds = kel_test::open_handles();
  }
  void TearDown() override {
    slfaultreset();
    EXPECT_EQ(kel_test::open_handles(), fds) << "a handle was left open";
    StartedLibrary::TearDown();
    fs::remove_all(dir);
  }
  std::string path(const std::string &name) const { return (dir / name).string(); }
  // The newest record is `msg` of facility LFI, and its first text argument names `name`.
  void expect_record(int32_t msg, const std::string &name, int depth_before) {
    ASSERT_EQ(lemged(lem), depth_before + 1);
    EXPECT_EQ(lemgec(lem, 1), msg);
    char fac[16];
    lemgef(lem, 1, fac, sizeof fac);
    EXPECT_STREQ(fac, "LFI");
    const char *text = nullptr;
    int64_t num = 0;
    if (!name.empty()) {
      ASSERT_EQ(lemgnp(lem, 1, 1, &num, &text), LEM_ARG_TEXT);
      EXPECT_EQ(std::string(text), name);
    }
    char msgbuf[512];
    EXPECT_GT(lemgem(lem, 1, msgbuf, sizeof msgbuf), 0);
    lemces(lem);
  }
  void *fctx = nullptr;
  fs::path dir;
  size_t fds = 0;
};

// ------------------------------------------------------------------ paths

TEST(FilePaths, AgreeWithPosixPathHandling) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", ""}, {"a", "b"}, {"a/", "b"}, {"/", "x"}, {"a", "/abs"}, {"", "x"}, {"a/b/c.txt", "d"},
      {"/usr/lib/", "x.so"}, {"//a//b/", "c"}, {"///a", ""}, {"//a", "b"}, {"a/./b/../c", ""},
      {"../../x", ""}, {"/../x", ""}, {"a/..", ""}, {"a/../..", ""}, {".", ""}, {"..", ""},
      {"./", ""}, {".profile", ""}, {"a/.profile", ""}, {"..a.b", ""}, {"a.b/c", ""},
      {"archive.tar.gz", ""}, {"dir.d/file", ""}, {"x.", ""}, {"/a/b/../../../c/./d/", ""},
      {"a//b//c", "d//e"}, {"...", ""}, {"a/...b", ""}, {"/.", ""}, {"/..", ""}, {"a/b/.", ""}};
  std::string in = (fs::temp_directory_path() / ("kelpath_" + std::to_string(slsipid()) + ".txt")).string();
  {
    std::ofstream o(in);
    for (auto &c : cases) o << c.first << '\t' << c.second << '\n';
  }
  std::string out;
  ASSERT_TRUE(kel_test::run_python("tests/file/path_oracle.py", in, out));
  fs::remove(in);
  std::istringstream lines(out);
  for (auto &c : cases) {
    std::string l;
    ASSERT_TRUE(std::getline(lines, l));
    std::vector<std::string> want;
    std::stringstream ss(l);
    for (std::string f; std::getline(ss, f, '\t');) want.push_back(f);
    want.resize(6);
    char buf[512];
    const char *a = c.first.c_str();
    ASSERT_GE(lfipjoin(a, c.second.c_str(), buf, sizeof buf), 0);
    EXPECT_EQ(buf, want[0]) << "join " << a << " , " << c.second;
    ASSERT_GE(lfipdir(a, buf, sizeof buf), 0);
    EXPECT_EQ(buf, want[1]) << "dir " << a;
    ASSERT_GE(lfipbase(a, buf, sizeof buf), 0);
    EXPECT_EQ(buf, want[2]) << "base " << a;
    ASSERT_GE(lfipext(a, buf, sizeof buf), 0);
    EXPECT_EQ(buf, want[3]) << "ext " << a;
    ASSERT_GE(lfipstem(a, buf, sizeof buf), 0);
    EXPECT_EQ(buf, want[4]) << "stem " << a;
    int32_t n = lfipnorm(a, buf, sizeof buf);
    EXPECT_EQ(buf, want[5]) << "norm " << a;
    EXPECT_EQ(n, static_cast<int32_t>(want[5].size()));
    // In place gives the same.
    std::string copy = c.first;
    copy.resize(copy.size() + 2);
    lfipnorm(copy.data(), copy.data(), copy.size());
    EXPECT_STREQ(copy.c_str(), want[5].c_str()) << "norm in place " << a;
  }
}

TEST(FilePaths, ShortBuffersAreRefusedWhole) {
  char buf[4] = "xyz";
  EXPECT_EQ(lfipjoin("ab", "c", buf, 4), -1);
  EXPECT_STREQ(buf, "xyz");
  char big[6];
  EXPECT_EQ(lfipjoin("ab", "cd", big, 6), 5);
  EXPECT_EQ(lfipnorm("abcd", buf, 4), -1);
  EXPECT_EQ(lfipbase(nullptr, buf, 4), -1);
  EXPECT_EQ(lfipisabs("/x"), 1);
  EXPECT_EQ(lfipisabs("x"), 0);
  char abs[4096];
  ASSERT_GT(lfipabs("a/../b", abs, sizeof abs), 0);
  EXPECT_EQ(fs::path(abs), fs::current_path() / "b");
}

// ------------------------------------------------------------- round trips

TEST_F(Files, BinaryRoundTripsAcrossBufferAndChunkSizes) {
  std::mt19937_64 rng(42);
  const size_t bufsizes[] = {1, 3, 4096, 65536, 1 << 20};
  const size_t lengths[] = {0, 1, 1000, 70000, 3 << 20};
  for (size_t bs : bufsizes) {
    for (size_t len : lengths) {
      if (bs == 1 && len > 70000) continue;  // a system call per byte: slow, adds nothing
      std::string data(len, '\0');
      for (auto &ch : data) ch = static_cast<char>(rng());
      std::string p = path("bin");
      lfifile *f = lfiopen(fctx, p.c_str(), LFI_WRITE, bs);
      ASSERT_NE(f, nullptr);
      for (size_t at = 0; at < len;) {
        size_t k = std::min<size_t>(len - at, 1 + rng() % (bs * 3 + 10));
        ASSERT_EQ(lfiwrite(fctx, f, data.data() + at, k), 0);
        at += k;
        ASSERT_EQ(lfitell(fctx, f), static_cast<int64_t>(at));
      }
      ASSERT_EQ(lficlose(fctx, f), 0);
      ASSERT_EQ(slurp(p), data) << "bufsize " << bs << " length " << len;
      ASSERT_EQ(lfifsize(fctx, p.c_str()), static_cast<int64_t>(len));

      f = lfiopen(fctx, p.c_str(), LFI_READ, bs);
      ASSERT_NE(f, nullptr);
      std::string back;
      std::vector<char> chunk(bs * 3 + 10);
      for (;;) {
        size_t k = 1 + rng() % chunk.size();
        int64_t r = lfiread(fctx, f, chunk.data(), k);
        ASSERT_GE(r, 0);
        if (r == 0) break;
        ASSERT_TRUE(static_cast<size_t>(r) == k || back.size() + r == len) << "short read in the middle";
        back.append(chunk.data(), static_cast<size_t>(r));
      }
      EXPECT_EQ(lfieof(fctx, f), 1);
      ASSERT_EQ(lficlose(fctx, f), 0);
      ASSERT_EQ(back, data) << "bufsize " << bs << " length " << len;
    }
  }
  EXPECT_EQ(lemged(lem), 0);
}

TEST_F(Files, LinesMatchGetline) {
  std::mt19937_64 rng(7);
  std::string text;
  for (int i = 0; i < 2000; i++) {
    size_t n = rng() % 7 == 0 ? rng() % 300 : rng() % 40;
    for (size_t j = 0; j < n; j++) text += static_cast<char>('a' + rng() % 26);
    if (i % 500 != 499 || i == 1999) text += '\n';
  }
  text += "no newline at the end";
  std::string p = path("lines.txt");
  for (size_t bs : {1, 5, 64, 65536}) {
    lfifile *w = lfiopen(fctx, p.c_str(), LFI_WRITE, bs);
    ASSERT_NE(w, nullptr);
    ASSERT_EQ(lfiputs(fctx, w, text.c_str()), 0);
    ASSERT_EQ(lficlose(fctx, w), 0);
    for (size_t len : {2, 17, 4096}) {
      std::ifstream in(p, std::ios::binary);
      std::vector<std::string> want;
      for (std::string l; std::getline(in, l);) want.push_back(l);
      lfifile *f = lfiopen(fctx, p.c_str(), LFI_READ, bs);
      ASSERT_NE(f, nullptr);
      std::vector<char> buf(len);
      std::vector<std::string> got;
      std::string cur;
      for (;;) {
        int32_t n = lfigetl(fctx, f, buf.data(), len);
        ASSERT_GE(n, 0);
        if (n == 0) break;
        ASSERT_EQ(strlen(buf.data()), static_cast<size_t>(n));
        ASSERT_LE(static_cast<size_t>(n), len - 1);
        cur.append(buf.data(), n);
        if (cur.back() == '\n') {
          cur.pop_back();
          got.push_back(cur);
          cur.clear();
        }
      }
      if (!cur.empty()) got.push_back(cur);
      ASSERT_EQ(lficlose(fctx, f), 0);
      ASSERT_EQ(got, want) << "bufsize " << bs << " line buffer " << len;
    }
  }
}

// Random reads, writes, seeks and tells on one file, the same operations on a
// copy through std::fstream; results and final contents must agree, through
// buffers smaller and larger than the transfers.
TEST_F(Files, SeekPatternsMatchFstream) {
  std::mt19937_64 rng(99);
  for (size_t bs : {1, 16, 4096}) {
    std::string a = path("seek_a"), b = path("seek_b");
    std::string init(20000, '\0');
    for (auto &ch : init) ch = static_cast<char>('A' + rng() % 26);
    for (auto *p : {&a, &b}) std::ofstream(*p, std::ios::binary) << init;
    lfifile *f = lfiopen(fctx, a.c_str(), LFI_READ | LFI_WRITE, bs);
    ASSERT_NE(f, nullptr);
    std::fstream g(b, std::ios::in | std::ios::out | std::ios::binary);
    ASSERT_TRUE(g.is_open());
    for (int step = 0; step < 3000; step++) {
      int op = static_cast<int>(rng() % 6);
      if (op == 0) {  // absolute seek
        int64_t to = static_cast<int64_t>(rng() % 26000);
        ASSERT_EQ(lfiseek(fctx, f, to, LFI_SEEK_SET), to);
        g.seekg(to);
        g.seekp(to);
      } else if (op == 1) {  // relative and end-relative seeks
        int64_t here = lfitell(fctx, f);
        int64_t d = static_cast<int64_t>(rng() % 600) - 300;
        if (here + d < 0) d = -here;
        if (rng() % 2) {
          ASSERT_EQ(lfiseek(fctx, f, d, LFI_SEEK_CUR), here + d);
          g.seekg(here + d);
        } else {
          int64_t e = -static_cast<int64_t>(rng() % 100);
          int64_t r = lfiseek(fctx, f, e, LFI_SEEK_END);
          g.seekg(e, std::ios::end);
          ASSERT_EQ(r, static_cast<int64_t>(g.tellg()));
        }
        g.seekp(g.tellg());
      } else if (op <= 3) {  // read
        size_t n = rng() % 200;
        std::string x(n, '\0'), y(n, '\0');
        int64_t r = lfiread(fctx, f, x.data(), n);
        g.read(y.data(), static_cast<std::streamsize>(n));
        int64_t r2 = g.gcount();
        g.clear();
        ASSERT_EQ(r, r2) << "step " << step;
        ASSERT_EQ(x.substr(0, r), y.substr(0, r2));
        g.seekp(g.tellg());
      } else {  // write
        size_t n = rng() % 200;
        std::string x(n, '\0');
        for (auto &ch : x) ch = static_cast<char>('a' + rng() % 26);
        ASSERT_EQ(lfiwrite(fctx, f, x.data(), n), 0);
        g.write(x.data(), static_cast<std::streamsize>(n));
        g.seekg(g.tellp());
      }
      ASSERT_EQ(lfitell(fctx, f), static_cast<int64_t>(g.tellg())) << "step " << step << " op " << op;
    }
    ASSERT_EQ(lfiseek(fctx, f, 0, LFI_SEEK_END), lfisize(fctx, f));
    char c;
    EXPECT_EQ(lfiread(fctx, f, &c, 1), 0);
    EXPECT_EQ(lfieof(fctx, f), 1);
    ASSERT_EQ(lficlose(fctx, f), 0);
    g.close();
    ASSERT_EQ(slurp(a), slurp(b)) << "bufsize " << bs;
    EXPECT_EQ(lfifsize(fctx, a.c_str()), static_cast<int64_t>(fs::file_size(b)));
  }
}

TEST_F(Files, AppendCreateExclusiveAndTemporary) {
  std::string p = path("log");
  for (int round = 0; round < 3; round++) {
    lfifile *f = lfiopen(fctx, p.c_str(), LFI_APPEND, 8);
    ASSERT_NE(f, nullptr);
    ASSERT_EQ(lfiputs(fctx, f, "line\n"), 0);
    EXPECT_EQ(lfitell(fctx, f), 5 * (round + 1));
    ASSERT_EQ(lficlose(fctx, f), 0);
  }
  EXPECT_EQ(slurp(p), "line\nline\nline\n");
  // Read and write with create keeps what is there; write alone truncates.
  lfifile *f = lfiopen(fctx, p.c_str(), LFI_READ | LFI_WRITE | LFI_CREATE, 0);
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(lfisize(fctx, f), 15);
  ASSERT_EQ(lficlose(fctx, f), 0);
  f = lfiopen(fctx, p.c_str(), LFI_WRITE, 0);
  ASSERT_NE(f, nullptr);
  ASSERT_EQ(lficlose(fctx, f), 0);
  EXPECT_EQ(fs::file_size(p), 0u);
  // Exclusive creation.
  std::string q = path("excl");
  f = lfiopen(fctx, q.c_str(), LFI_WRITE | LFI_EXCL, 0);
  ASSERT_NE(f, nullptr);
  ASSERT_EQ(lficlose(fctx, f), 0);
  // Temporary: usable, and nothing is left in the directory.
  f = lfiopen(fctx, dir.string().c_str(), LFI_TEMP, 64);
  ASSERT_NE(f, nullptr);
  std::string data(1000, 'q');
  ASSERT_EQ(lfiwrite(fctx, f, data.data(), data.size()), 0);
  ASSERT_EQ(lfiseek(fctx, f, 10, LFI_SEEK_SET), 10);
  char back[20] = {};
  ASSERT_EQ(lfiread(fctx, f, back, 5), 5);
  EXPECT_STREQ(back, "qqqqq");
  ASSERT_EQ(lficlose(fctx, f), 0);
  size_t entries = 0;
  for (auto &e : fs::directory_iterator(dir)) (void)e, entries++;
  EXPECT_EQ(entries, 2u);  // log and excl
  f = lfiopen(fctx, nullptr, LFI_TEMP, 0);
  ASSERT_NE(f, nullptr);
  ASSERT_EQ(lficlose(fctx, f), 0);
  EXPECT_EQ(lemged(lem), 0);
}

// -------------------------------------------------------------- directories

TEST_F(Files, DirectoriesAgreeWithFilesystem) {
  KEL_SKIP_ON_WINDOWS("Wine makes no symbolic links");
  std::string deep = path("x/y/z");
  ASSERT_EQ(lfimkdir(fctx, deep.c_str(), 1), 0);
  ASSERT_EQ(lfimkdir(fctx, deep.c_str(), 1), 0);  // exists: fine with parents
  EXPECT_TRUE(fs::is_directory(deep));
  std::mt19937_64 rng(3);
  std::vector<std::string> want;
  for (int i = 0; i < 300; i++) {
    std::string n = "f" + std::to_string(rng() % 100000) + (i % 3 ? ".txt" : "");
    std::ofstream(path("x/" + n)) << i;
  }
  for (auto &e : fs::directory_iterator(path("x"))) want.push_back(e.path().filename().string());
  std::sort(want.begin(), want.end());
  size_t count = 0;
  char **list = lfilist(fctx, path("x").c_str(), &count);
  ASSERT_NE(list, nullptr);
  std::vector<std::string> got;
  for (char **p = list; *p != nullptr; p++) got.push_back(*p);
  lfilfree(fctx, list);
  EXPECT_EQ(count, want.size());
  EXPECT_EQ(got, want);
  // An empty directory lists as an empty array.
  list = lfilist(fctx, deep.c_str(), &count);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(list[0], nullptr);
  lfilfree(fctx, list);

  EXPECT_EQ(lfiexists(fctx, path("x").c_str()), LFI_DIR);
  EXPECT_EQ(lfiexists(fctx, path("x/" + want[0]).c_str()), LFI_FILE);
  EXPECT_EQ(lfiexists(fctx, path("nothing").c_str()), LFI_NONE);
  EXPECT_EQ(lfiexists(fctx, path("x/" + want[0] + "/below").c_str()), LFI_NONE);
  // A link inside is removed, not followed.
  std::string keep = path("keep");
  fs::create_directory(keep);
  std::ofstream(keep + "/precious") << "x";
  fs::create_directory_symlink(keep, path("x/y/link"));
  ASSERT_EQ(lfirename(fctx, path("x/" + want[0]).c_str(), path("renamed").c_str()), 0);
  EXPECT_TRUE(fs::exists(path("renamed")));
  ASSERT_EQ(lfirmdir(fctx, path("x").c_str(), 1), 0);
  EXPECT_FALSE(fs::exists(path("x")));
  EXPECT_TRUE(fs::exists(keep + "/precious"));
  ASSERT_EQ(lfiremove(fctx, path("renamed").c_str()), 0);
  ASSERT_EQ(lfirmdir(fctx, keep.c_str(), 1), 0);
  EXPECT_EQ(lemged(lem), 0);
}

// Files left open are written out and closed when the library stops.
TEST_F(Files, StopClosesWhatWasLeftOpen) {
  KEL_SKIP_ON_WINDOWS("Wine keeps no steady count of open handles");
  for (int i = 0; i < 3; i++) {
    lfifile *f = lfiopen(fctx, path("left" + std::to_string(i)).c_str(), LFI_WRITE, 1024);
    ASSERT_NE(f, nullptr);
    ASSERT_EQ(lfiputs(fctx, f, "pending"), 0);
  }
  lfifile *closed = lfiopen(fctx, path("closed").c_str(), LFI_WRITE, 0);
  ASSERT_EQ(lficlose(fctx, closed), 0);
  EXPECT_EQ(kel_test::open_handles(), fds + 3);
  ASSERT_EQ(lpmterm(ctx), 0);
  EXPECT_EQ(kel_test::open_handles(), fds);
  for (int i = 0; i < 3; i++) EXPECT_EQ(slurp(path("left" + std::to_string(i))), "pending");
  ctx = lpminit();
  ASSERT_NE(ctx, nullptr);
  fctx = ctx->lfictx;
  lem = ctx->lemctx;
}

// A package instance's file context closes the instance's files when it
// ends, and only those.
TEST_F(Files, InstanceContextsCloseTheirOwnFiles) {
  KEL_SKIP_ON_WINDOWS("Wine keeps no steady count of open handles");
  void *sub = nullptr;
  ASSERT_EQ(lficis(ctx, &sub, ctx), 0);
  ASSERT_NE(sub, nullptr);
  lfifile *mine = lfiopen(sub, path("instance").c_str(), LFI_WRITE, 256);
  ASSERT_NE(mine, nullptr);
  ASSERT_EQ(lfiputs(sub, mine, "from the instance"), 0);
  lfifile *root = lfiopen(fctx, path("root").c_str(), LFI_WRITE, 256);
  ASSERT_NE(root, nullptr);
  // A failure through the instance's context lands on the same stacks.
  EXPECT_EQ(lfiopen(sub, path("missing").c_str(), LFI_READ, 0), nullptr);
  EXPECT_EQ(lemgec(lem, 1), kelmsg::LFI_NOTFOUND);
  lemces(lem);
  EXPECT_EQ(kel_test::open_handles(), fds + 2);
  ASSERT_EQ(lficit(ctx, sub, ctx), 0);
  EXPECT_EQ(kel_test::open_handles(), fds + 1);
  EXPECT_EQ(slurp(path("instance")), "from the instance");
  EXPECT_EQ(lfiputs(fctx, root, "still open"), 0);
  EXPECT_EQ(lficlose(fctx, root), 0);
  EXPECT_EQ(slurp(path("root")), "still open");
  EXPECT_EQ(lficit(ctx, nullptr, ctx), -1);
}

// --------------------------------------------------------------- failures

TEST_F(Files, EveryFailureLeavesItsRecordAndNothingOpen) {
  std::string file = path("file"), sub = path("sub");
  std::ofstream(file) << "0123456789";
  fs::create_directory(sub);
  std::ofstream(sub + "/inside") << "x";
  struct Case {
    const char *what;
    int32_t point;  // 0: none
    int32_t msg;
    std::string name;
    std::function<bool()> run;  // true when the call failed as it should
  };
  auto open_fails = [&](const std::string &p, uint32_t mode) {
    return [=, this] { return lfiopen(fctx, p.c_str(), mode, 0) == nullptr; };
  };
  auto with_open = [&](uint32_t mode, std::function<bool(lfifile *)> body) {
    return [=, this] {
      lfifile *f = lfiopen(fctx, file.c_str(), mode, 4);
      if (f == nullptr) return false;
      bool failed = body(f);
      slfaultreset();
      int32_t rc = lficlose(fctx, f);
      return failed && rc == 0;
    };
  };
  char buf[64];
  const std::vector<Case> cases = {
      {"missing file", 0, kelmsg::LFI_NOTFOUND, path("missing"), open_fails(path("missing"), LFI_READ)},
      {"missing directory", 0, kelmsg::LFI_NOTFOUND, path("no/such"), open_fails(path("no/such"), LFI_WRITE)},
      {"directory as file", 0, kelmsg::LFI_ISDIR, sub, open_fails(sub, LFI_READ)},
      {"directory as file, writing", 0, kelmsg::LFI_ISDIR, sub, open_fails(sub, LFI_WRITE)},
      {"file as directory", 0, kel_test::kWindows ? kelmsg::LFI_NOTFOUND : kelmsg::LFI_NOTDIR, file + "/x", open_fails(file + "/x", LFI_WRITE)},
      {"exclusive on existing", 0, kelmsg::LFI_EXISTS, file, open_fails(file, LFI_WRITE | LFI_EXCL)},
      {"open refused (no permission)", SL_FAULT_FILE_OPEN, kelmsg::LFI_OPEN, file, open_fails(file, LFI_READ)},
      {"temporary refused", SL_FAULT_FILE_OPEN, kelmsg::LFI_OPEN, "(temporary file)", open_fails("", LFI_TEMP)},
      {"no memory for the buffer", SL_FAULT_ANYMEM, kelmsg::LFI_NOMEM, "lfiopen",
       [&, this] { return lfiopen(fctx, file.c_str(), LFI_READ, 64u << 20) == nullptr; }},
      {"bad mode", 0, kelmsg::LFI_BADARG, "lfiopen", open_fails(file, 0x1000)},
      {"read fails", SL_FAULT_FILE_READ, kelmsg::LFI_READFAIL, file,
       with_open(LFI_READ, [&, this](lfifile *f) { return lfiread(fctx, f, buf, 8) == -1; })},
      {"line read fails", SL_FAULT_FILE_READ, kelmsg::LFI_READFAIL, file,
       with_open(LFI_READ, [&, this](lfifile *f) { return lfigetl(fctx, f, buf, 8) == -1; })},
      {"disk full on flush", SL_FAULT_FILE_WRITE, kelmsg::LFI_NOSPACE, file, with_open(LFI_READ | LFI_WRITE, [&, this](lfifile *f) {
         return lfiwrite(fctx, f, "ab", 2) == 0 && lfiflush(fctx, f) == -1;
       })},
      {"disk full on a large write", SL_FAULT_FILE_WRITE, kelmsg::LFI_NOSPACE, file,
       with_open(LFI_READ | LFI_WRITE, [&, this](lfifile *f) { return lfiwrite(fctx, f, "0123456789", 10) == -1; })},
      {"disk full at close", SL_FAULT_FILE_WRITE, kelmsg::LFI_NOSPACE, file,
       [&, this] {
         lfifile *f = lfiopen(fctx, file.c_str(), LFI_READ | LFI_WRITE, 64);
         return f != nullptr && lfiwrite(fctx, f, "ab", 2) == 0 && lficlose(fctx, f) == -1;
       }},
      {"write on a read-only file", 0, kelmsg::LFI_MODE, file,
       with_open(LFI_READ, [&, this](lfifile *f) { return lfiwrite(fctx, f, "x", 1) == -1; })},
      {"read on a write-only file", 0, kelmsg::LFI_MODE, file,
       with_open(LFI_APPEND, [&, this](lfifile *f) { return lfiread(fctx, f, buf, 1) == -1; })},
      {"seek fails", SL_FAULT_FILE_OTHER, kelmsg::LFI_SEEK, file,
       with_open(LFI_READ, [&, this](lfifile *f) { return lfiseek(fctx, f, 100, LFI_SEEK_SET) == -1; })},
      {"seek before the start", 0, kelmsg::LFI_SEEK, file,
       with_open(LFI_READ, [&, this](lfifile *f) { return lfiseek(fctx, f, -1, LFI_SEEK_SET) == -1; })},
      {"sync fails", SL_FAULT_FILE_OTHER, kelmsg::LFI_SYNC, file,
       with_open(LFI_READ | LFI_WRITE, [&, this](lfifile *f) { return lfisync(fctx, f) == -1; })},
      {"size fails", SL_FAULT_FILE_OTHER, kelmsg::LFI_STAT, file,
       with_open(LFI_READ, [&, this](lfifile *f) { return lfisize(fctx, f) == -1; })},
      {"remove missing", 0, kelmsg::LFI_NOTFOUND, path("missing"),
       [&, this] { return lfiremove(fctx, path("missing").c_str()) == -1; }},
      {"remove a directory", 0, kelmsg::LFI_ISDIR, sub, [&, this] { return lfiremove(fctx, sub.c_str()) == -1; }},
      {"remove refused", SL_FAULT_FILE_OTHER, kelmsg::LFI_REMOVE, file,
       [&, this] { return lfiremove(fctx, file.c_str()) == -1; }},
      {"rename missing", 0, kelmsg::LFI_NOTFOUND, path("missing"),
       [&, this] { return lfirename(fctx, path("missing").c_str(), path("other").c_str()) == -1; }},
      {"rename refused", SL_FAULT_FILE_OTHER, kelmsg::LFI_RENAME, file,
       [&, this] { return lfirename(fctx, file.c_str(), path("other").c_str()) == -1; }},
      {"mkdir existing", 0, kelmsg::LFI_EXISTS, sub, [&, this] { return lfimkdir(fctx, sub.c_str(), 0) == -1; }},
      {"mkdir below a file", 0, kelmsg::LFI_NOTDIR, file,
       [&, this] { return lfimkdir(fctx, (file + "/d/e").c_str(), 1) == -1; }},
      {"mkdir refused", SL_FAULT_FILE_OTHER, kelmsg::LFI_MKDIR, path("new"),
       [&, this] { return lfimkdir(fctx, path("new").c_str(), 0) == -1; }},
      {"rmdir not empty", 0, kelmsg::LFI_NOTEMPTY, sub, [&, this] { return lfirmdir(fctx, sub.c_str(), 0) == -1; }},
      {"rmdir missing", 0, kelmsg::LFI_NOTFOUND, path("missing"),
       [&, this] { return lfirmdir(fctx, path("missing").c_str(), 0) == -1; }},
      {"recursive rmdir refused", SL_FAULT_FILE_OTHER, kelmsg::LFI_LIST, sub,
       [&, this] { return lfirmdir(fctx, sub.c_str(), 1) == -1; }},
      {"list missing", 0, kelmsg::LFI_NOTFOUND, path("missing"),
       [&, this] { return lfilist(fctx, path("missing").c_str(), nullptr) == nullptr; }},
      {"list a file", 0, kelmsg::LFI_NOTDIR, file, [&, this] { return lfilist(fctx, file.c_str(), nullptr) == nullptr; }},
      {"size of missing", 0, kelmsg::LFI_NOTFOUND, path("missing"),
       [&, this] { return lfifsize(fctx, path("missing").c_str()) == -1; }},
      {"null name", 0, kelmsg::LFI_BADARG, "lfiexists", [&, this] { return lfiexists(fctx, nullptr) == -1; }},
      {"null buffer", 0, kelmsg::LFI_BADARG, "lfiread",
       with_open(LFI_READ, [&, this](lfifile *f) { return lfiread(fctx, f, nullptr, 1) == -1; })},
      {"null text", 0, kelmsg::LFI_BADARG, "lfiputs",
       with_open(LFI_READ | LFI_WRITE, [&, this](lfifile *f) { return lfiputs(fctx, f, nullptr) == -1; })},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    if (c.point != 0 && !have_faults()) continue;
    int depth = lemged(lem);
    if (c.point != 0) ASSERT_EQ(slfaultarm(c.point, 1, 1), 0);
    EXPECT_TRUE(c.run());
    slfaultreset();
    // The memory manager records its own failure under ours.
    if (c.point == SL_FAULT_ANYMEM) {
      ASSERT_GT(lemged(lem), depth + 1);
      depth = lemged(lem) - 1;
    }
    expect_record(c.msg, c.name, depth);
    EXPECT_EQ(kel_test::open_handles(), fds);
    EXPECT_TRUE(fs::exists(file)) << "the test's own file went missing";
  }
  // After all of that the context still works.
  lfifile *f = lfiopen(fctx, file.c_str(), LFI_READ, 0);
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(lfiread(fctx, f, buf, sizeof buf), 10);
  EXPECT_EQ(std::string(buf, 10), "0123456789");
  EXPECT_EQ(lficlose(fctx, f), 0);
}

// A disk that fills up in the middle of a long write: the first failed
// write reports the full disk, and everything before it is in the file.
TEST_F(Files, DiskFullPartway) {
  if (!have_faults()) GTEST_SKIP() << "no fault points in this build";
  std::string p = path("big");
  lfifile *f = lfiopen(fctx, p.c_str(), LFI_WRITE, 4096);
  ASSERT_NE(f, nullptr);
  ASSERT_EQ(slfaultarm(SL_FAULT_FILE_WRITE, 5, -1), 0);
  std::string block(1000, 'z');
  int ok = 0;
  while (lfiwrite(fctx, f, block.data(), block.size()) == 0) ok++;
  slfaultreset();
  EXPECT_EQ(lemgec(lem, 1), kelmsg::LFI_NOSPACE);
  EXPECT_EQ(lficlose(fctx, f), 0);
  EXPECT_EQ(fs::file_size(p), 4u * 4096u);
  EXPECT_GE(ok * 1000, 4 * 4096);
}

}  // namespace
