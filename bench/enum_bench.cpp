// Walks, comparison, the list report and hashing against the standard tools, on the same data in one run,
// each pair taken in turn and its medians compared:
//   GetFileCountInFolder and `velmora count`   vs du -sb                     (goal: at most 2.5 times)
//   CompareFolder without hashing               vs rsync -rn --delete         (goal: at most as long)
//   CompareFolder with hashing                  vs rsync -rnc --delete        (goal: at most as long)
//   `velmora count --list`                      vs find -printf, same columns (goal: at most 1.1 times)
//   GetFileCountInFolderEx into a list control  vs find -printf (the report without the command line)
//   GetFileHash of a 1 GiB file                 vs md5sum                     (goal: at most 0.9 times)
//   the same bytes hashed with nothing read      vs md5sum                     (the best GetFileHash can do)
// With --growth, a table of the walks at 10,000 and 100,000 entries (and 1,000,000 with --growth-max):
// ten times the entries should cost at most eleven times the time. Beside each time on the clock is the
// growth of the processor time, which a busy machine disturbs less.
//
//     enum_bench [--files N] [--hash-mib M] [--rounds R] [--dir DIR] [--velmora PATH]
//                [--only count,compare,list,hash] [--growth] [--growth-max N]
//
// Run by hand on a Release build. The data goes under DIR (default: the system's temporary folder) and
// is removed afterwards. `velmora` defaults to the one beside the bench folder of this build.
#include <limits.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <velmora/velmora.h>

#include "../platform/api.h"
#include "../platform/linux/host.h"
#include "ratio_reporter.h"

namespace {

namespace fs = std::filesystem;

struct Settings {
    long files = 100000;
    long hashMiB = 1024;
    int rounds = 5;
    std::string dir = fs::temp_directory_path();
    std::string velmora;
    std::string only = "count,compare,list,hash";
    bool growth = false;
    long growthMax = 100000;
};
Settings g_settings;
std::string g_root;

bool Wanted(const std::string& part) { return ("," + g_settings.only + ",").find("," + part + ",") != std::string::npos; }

// count files in folders of a thousand, each of a few hundred bytes to a few KiB when withContent.
void MakeTree(const fs::path& root, long count, bool withContent) {
    std::string content;
    for (long i = 0; i < count; ++i) {
        const fs::path folder = root / ("d" + std::to_string(i / 1000));
        if (i % 1000 == 0) fs::create_directories(folder);
        std::ofstream file(folder / ("f" + std::to_string(i) + ".dat"), std::ios::binary);
        if (withContent) file << content.assign(static_cast<size_t>(64 + (i * 7919) % 4032), static_cast<char>('a' + i % 26));
    }
}

void WriteBytes(const fs::path& path, size_t size) {
    std::string block(1 << 20, '\0');
    for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>((i * 2654435761u) >> 13);
    std::ofstream out(path, std::ios::binary);
    for (size_t written = 0; written < size; written += block.size())
        out.write(block.data(), static_cast<std::streamsize>(std::min(block.size(), size - written)));
}

// The second tree of a comparison: a copy with the same times, then some files rewritten with another
// size, some removed and some added, so that both tools have differences to report in each kind.
bool MakeAlteredCopy(const fs::path& from, const fs::path& to, long count) {
    if (RunTool({"cp", "-a", from.string(), to.string()}) != 0) return false;
    for (long i = 0; i < count; i += 100) {
        const fs::path folder = to / ("d" + std::to_string(i / 1000));
        std::ofstream(folder / ("f" + std::to_string(i) + ".dat"), std::ios::binary) << "changed";
        fs::remove(folder / ("f" + std::to_string(i + 50) + ".dat"));
        std::ofstream(folder / ("new" + std::to_string(i) + ".dat"), std::ios::binary) << "new";
    }
    return true;
}

CString OnB(const std::string& relative) { return CString((u"B:\\" + WStrFromUtf8(relative)).c_str()); }
std::string OnHost(const std::string& relative) { return g_root + "/" + relative; }

void FreeList(FileListNode& head) {
    for (FileListNode* node = head.next; node != nullptr;) {
        FileListNode* next = node->next;
        std::free(node);
        node = next;
    }
    head.next = nullptr;
}

// ---- The sides of the pairs

BenchSide CountWithLibrary(const std::string& tree) {
    return {"GetFileCountInFolder", [tree] {
                ULONGLONG files = 0, folders = 0, bytes = 0;
                GetFileCountInFolder(OnB(tree), &files, &folders, &bytes, nullptr, CString(), nullptr);
                return files > 0;
            }};
}

BenchSide CountWithCli(const std::string& tree) {
    return {"velmora count", [tree] {
                return RunTool({g_settings.velmora, "--map", "B=" + g_root, "count", "--quiet", "B:\\" + tree}) == 0;
            }};
}

BenchSide CountWithDu(const std::string& tree) {
    return {"du -sb", [tree] { return RunTool({"du", "-sb", OnHost(tree)}) == 0; }};
}

// The same three columns as the list report: path, last write (UTC, to the minute) and size. Progress
// goes to /dev/null, where it is plain lines at most once a second.
BenchSide ListWithCli(const std::string& tree) {
    return {"velmora count --list", [tree] {
                return RunTool({g_settings.velmora, "--map", "B=" + g_root, "count", "--list", "B:\\" + tree}) == 0;
            }};
}

// The library's report into a list-view control of this process, as an application's window holds one:
// what the command line adds to it is the difference from the row above.
BenchSide ListWithLibrary(const std::string& tree) {
    return {"GetFileCountInFolderEx", [tree] {
                CListCtrl list;
                if (!list.Create(LVS_REPORT, RECT{0, 0, 800, 600}, nullptr, 1)) return false;
                const LPCWSTR headings[] = {_T("path"), _T("written"), _T("size")};
                for (int column = 0; column < 3; ++column) list.InsertColumn(column, headings[column]);
                ULONGLONG files = 0, folders = 0, bytes = 0;
                GetFileCountInFolderEx(OnB(tree), &files, &folders, &bytes, nullptr, CString(), nullptr, COleDateTime(),
                                       COleDateTime(), 0, 0, 0, &list);
                return files > 0 && list.GetItemCount() == static_cast<int>(files);
            }};
}

BenchSide ListWithFind(const std::string& tree) {
    return {"find -printf", [tree] {
                return RunTool({"find", OnHost(tree), "-type", "f", "-printf", "%TY/%Tm/%Td %TH:%TM  %s  %p\\n"}, {"TZ=UTC"}) == 0;
            }};
}

// Both ways (entries only in B count too), as rsync --delete reports what it would delete.
BenchSide CompareWithLibrary(const std::string& a, const std::string& b, bool hash) {
    return {hash ? "CompareFolder, MD5" : "CompareFolder", [a, b, hash] {
                FileListNode head{};
                CompareFolder(OnB(a), OnB(b), &head, 1, hash ? 1 : 0);
                FreeList(head);
                return true;
            }};
}

BenchSide CompareWithRsync(const std::string& a, const std::string& b, bool hash) {
    return {hash ? "rsync -rnc --delete" : "rsync -rn --delete", [a, b, hash] {
                return RunTool({"rsync", hash ? "-rnc" : "-rn", "--delete", OnHost(a) + "/", OnHost(b) + "/"}) == 0;
            }};
}

// ---- The parts of the run

void RunCountAndList() {
    const std::string tree = "tree";
    if (Wanted("count")) {
        ComparePair("count, " + std::to_string(g_settings.files) + " files", CountWithLibrary(tree), CountWithDu(tree),
                    g_settings.rounds, 2.5);
        if (!g_settings.velmora.empty())
            ComparePair("count, " + std::to_string(g_settings.files) + " files", CountWithCli(tree), CountWithDu(tree),
                        g_settings.rounds, 2.5);
    }
    if (Wanted("list")) {
        ComparePair("list, " + std::to_string(g_settings.files) + " files", ListWithLibrary(tree), ListWithFind(tree),
                    g_settings.rounds, 1.1);
        if (!g_settings.velmora.empty())
            ComparePair("list, " + std::to_string(g_settings.files) + " files", ListWithCli(tree), ListWithFind(tree),
                        g_settings.rounds, 1.1);
    }
}

void RunCompare() {
    if (!HaveTool("rsync")) {
        std::printf("compare: skipped, install rsync for its anchor\n");
        return;
    }
    if (!MakeAlteredCopy(OnHost("tree"), OnHost("altered"), g_settings.files)) {
        std::printf("compare: skipped, the second tree could not be made\n");
        return;
    }
    const std::string what = "compare, 2 x " + std::to_string(g_settings.files) + " files";
    for (const bool hash : {false, true})
        ComparePair(what + (hash ? ", hashed" : ""), CompareWithLibrary("tree", "altered", hash),
                    CompareWithRsync("tree", "altered", hash), g_settings.rounds, 1.0);
    fs::remove_all(OnHost("altered"));
}

// The same number of bytes given to CryptHashData in 64 KiB blocks, with nothing read: the pace of one MD5
// stream through the platform. GetFileHash cannot beat it, so its ratio to md5sum is the best that
// GetFileHash's can be.
BenchSide HashStreamAlone(long mib) {
    return {"CryptHashData alone", [mib] {
                const std::vector<BYTE> block(65536, 0x5a);
                HCRYPTPROV provider = 0;
                if (!sys().CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT)) return false;
                HCRYPTHASH hash = 0;
                bool hashed = sys().CryptCreateHash(provider, CALG_MD5, 0, 0, &hash);
                for (long i = 0; hashed && i < mib * 16; ++i) hashed = sys().CryptHashData(hash, block.data(), 65536, 0);
                BYTE digest[16];
                DWORD length = sizeof digest;
                hashed = hashed && sys().CryptGetHashParam(hash, HP_HASHVAL, digest, &length, 0);
                if (hash != 0) sys().CryptDestroyHash(hash);
                sys().CryptReleaseContext(provider, 0);
                return hashed;
            }};
}

void RunHash() {
    WriteBytes(OnHost("big.bin"), static_cast<size_t>(g_settings.hashMiB) << 20);
    const BenchSide ours{"GetFileHash", [] {
                             BYTE digest[16];
                             return GetFileHash(_T("B:\\big.bin"), digest, CALG_MD5) == 1;
                         }};
    const BenchSide md5sum{"md5sum", [] { return RunTool({"md5sum", OnHost("big.bin")}) == 0; }};
    const std::string what = "hash, " + std::to_string(g_settings.hashMiB) + " MiB";
    ComparePair(what, ours, md5sum, g_settings.rounds, 0.9);
    ComparePair(what + ", no reads", HashStreamAlone(g_settings.hashMiB), md5sum, g_settings.rounds, 0.9);
    fs::remove(OnHost("big.bin"));
}

// One row per size, ten times the last; the growth columns are each time over the row above's.
void RunGrowth() {
    struct Walk {
        const char* what;
        BenchSide (*ours)(const std::string&);
        BenchSide (*anchor)(const std::string&);
    };
    std::vector<Walk> walks = {{"count", CountWithLibrary, CountWithDu}};
    if (!g_settings.velmora.empty()) walks.push_back({"list", ListWithCli, ListWithFind});
    const bool compare = HaveTool("rsync");
    if (!compare) std::printf("growth of compare: skipped, install rsync for its anchor\n");
    std::printf("\n%-8s %10s  %10s %7s %9s  %10s %7s %9s   (goal: ours grows at most 11 times per row)\n", "walk",
                "entries", "ours s", "growth", "processor", "anchor s", "growth", "processor");
    std::vector<std::vector<PairTimes>> rows;
    for (long entries = 10000; entries <= g_settings.growthMax; entries *= 10) {
        const std::string tree = "growth" + std::to_string(entries);
        MakeTree(OnHost(tree), entries, false);
        // Hard links make the second tree cheaply; the comparison sees the same sizes and times.
        if (compare) RunTool({"cp", "-al", OnHost(tree), OnHost(tree + "b")});
        std::vector<BenchSide> ours, anchors;
        std::vector<std::string> names;
        for (const Walk& walk : walks) {
            ours.push_back(walk.ours(tree));
            anchors.push_back(walk.anchor(tree));
            names.push_back(walk.what);
        }
        if (compare) {
            ours.push_back(CompareWithLibrary(tree, tree + "b", false));
            anchors.push_back(CompareWithRsync(tree, tree + "b", false));
            names.push_back("compare");
        }
        rows.emplace_back();
        for (size_t i = 0; i < ours.size(); ++i) {
            const PairTimes times = RunPair(ours[i], anchors[i], g_settings.rounds);
            const PairTimes* above = rows.size() > 1 ? &rows[rows.size() - 2][i] : nullptr;
            // The first row has nothing to grow from, nor has a row after a failed one.
            const auto growth = [above](double now, double PairTimes::*side) {
                char text[16] = "-";
                if (above != nullptr && above->*side > 0 && now > 0) std::snprintf(text, sizeof text, "%.2f", now / (above->*side));
                return std::string(text);
            };
            std::printf("%-8s %10ld  %10.3f %7s %9s  %10.3f %7s %9s   load %.2f\n", names[i].c_str(), entries, times.ours,
                        growth(times.ours, &PairTimes::ours).c_str(), growth(times.oursCpu, &PairTimes::oursCpu).c_str(),
                        times.anchor, growth(times.anchor, &PairTimes::anchor).c_str(),
                        growth(times.anchorCpu, &PairTimes::anchorCpu).c_str(), LoadAverage());
            std::fflush(stdout);
            rows.back().push_back(times);
        }
        fs::remove_all(OnHost(tree));
        fs::remove_all(OnHost(tree + "b"));
    }
}

std::string VelmoraBesideBench() {
    char self[PATH_MAX] = {};
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0) return {};
    return (fs::path(std::string(self, static_cast<size_t>(length))).parent_path().parent_path() / "velmora").string();
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        if (arg == "--files" && hasValue) g_settings.files = std::atol(argv[++i]);
        else if (arg == "--hash-mib" && hasValue) g_settings.hashMiB = std::atol(argv[++i]);
        else if (arg == "--rounds" && hasValue) g_settings.rounds = std::atoi(argv[++i]);
        else if (arg == "--dir" && hasValue) g_settings.dir = argv[++i];
        else if (arg == "--velmora" && hasValue) g_settings.velmora = argv[++i];
        else if (arg == "--only" && hasValue) g_settings.only = argv[++i];
        else if (arg == "--growth") g_settings.growth = true;
        else if (arg == "--growth-max" && hasValue) g_settings.growth = true, g_settings.growthMax = std::atol(argv[++i]);
        else {
            std::fprintf(stderr, "usage: enum_bench [--files N] [--hash-mib M] [--rounds R] [--dir DIR] [--velmora PATH]\n"
                                 "                  [--only count,compare,list,hash] [--growth] [--growth-max N]\n");
            return 2;
        }
    }
    if (g_settings.velmora.empty()) g_settings.velmora = VelmoraBesideBench();
    if (access(g_settings.velmora.c_str(), X_OK) != 0) {
        std::printf("no velmora program at '%s': its rows are skipped (build it, or give --velmora)\n", g_settings.velmora.c_str());
        g_settings.velmora.clear();
    }
    g_root = MakeBenchRoot(g_settings.dir, "enum");
    if (g_root.empty() || !vlx::MapDrive('B', g_root)) return 1;
    std::printf("medians of %d rounds each, taken in turn, under %s\n", std::max(g_settings.rounds, 5), g_root.c_str());

    if (Wanted("count") || Wanted("list") || Wanted("compare")) {
        MakeTree(OnHost("tree"), g_settings.files, true);
        RunCountAndList();
        if (Wanted("compare")) RunCompare();
        fs::remove_all(OnHost("tree"));
    }
    if (Wanted("hash")) RunHash();
    if (g_settings.growth) RunGrowth();

    vlx::UnmapDrive('B');
    fs::remove_all(g_root);
    return 0;
}
