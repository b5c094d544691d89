// Zip folders of the Linux shell, through the library's exports and Shell.Application: archives that other
// tools read back as the tree that went in, archives of other tools extracted, adding to an archive in
// place, the hold on the archive while the shell compresses, and broken or hostile archives refused
// without leaving anything behind.
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "../support/copy_support.h"

namespace {

using namespace testing_support;
namespace fs = std::filesystem;

const std::string kTitle = "圧縮しています...";

class ZipFolder : public HostFolderTest {
protected:
    void SetUp() override {
        HostFolderTest::SetUp();
        comBefore_ = vlx::LiveComObjectCount();
    }
    void TearDown() override {
        vlx::WaitForShellCopies();
        EXPECT_EQ(vlx::LiveComObjectCount(), comBefore_) << "a COM object was not released";
        EXPECT_EQ(vlx::ComApartmentDepth(), 0);
        HostFolderTest::TearDown();
    }

    int Run(const std::string& command) const { return std::system(("cd '" + root_ + "' && " + command + " >/dev/null 2>&1").c_str()); }

    // A small tree with what archives get wrong: nesting, an empty folder, Japanese names, binary data.
    void MakeTree(const std::string& top) const {
        WriteFile(top + "/a.txt", "alpha\n");
        WriteFile(top + "/sub/deeper/b.bin", std::string("\0\x01\x02\xff binary", 12));
        WriteFile(top + "/日本語フォルダ/ファイル.txt", "にほんご");
        WriteFile(top + "/sub/big.txt", std::string(300000, 'x') + "end");
        MakeFolder(top + "/empty");
    }

    int Compress(const std::string& source, const std::string& archive, int silent = 1) {
        // A pause of the release wait waits for the shell's thread instead of the clock.
        ApiPatch<&Win32Api::Sleep> sleep([this](DWORD milliseconds) {
            if (milliseconds == 200) ++progressPauses_;
            else vlx::WaitForShellCopies();
        });
        int code = 12345;
        const BOOL result = CompressToZip(Win(source), Win(archive), silent, &code);
        EXPECT_EQ(result, code == 0 ? TRUE : FALSE);
        return code;
    }

    size_t comBefore_ = 0;
    int progressPauses_ = 0;
};

TEST_F(ZipFolder, ArchivesWeWritePassUnzipAndExtractToTheSameTreeBothWays) {
    MakeTree("src");
    ASSERT_EQ(Compress("src", "out"), 0);
    EXPECT_EQ(Run("unzip -tq out.zip"), 0);
    EXPECT_EQ(Run("zipinfo out.zip"), 0);
    // A folder goes in under its own name; names outside ASCII carry the UTF-8 flag, the others do not.
    EXPECT_EQ(Run("python3 -c \"import zipfile,sys; z=zipfile.ZipFile('out.zip'); "
                  "sys.exit(any(bool(i.flag_bits & 0x800) != (not i.filename.isascii()) or not i.filename.startswith('src/') "
                  "for i in z.infolist()))\""),
              0);
    EXPECT_EQ(Run("mkdir by-unzip && unzip -q out.zip -d by-unzip && diff -r src by-unzip/src"), 0);
    EXPECT_EQ(ExtractFromZip(Win("out.zip"), Win("ours\\x"), 1), TRUE);
    EXPECT_EQ(Run("diff -r src ours/x/src"), 0);
    EXPECT_TRUE(fs::is_directory(Host("ours/x/src/empty")));
}

TEST_F(ZipFolder, AddingToAnArchiveKeepsItsEntriesAndChangesItInPlace) {
    WriteFile("one.txt", "1");
    MakeTree("two");
    ASSERT_EQ(Compress("one.txt", "both.zip"), 0);
    ASSERT_EQ(link(Host("both.zip").c_str(), Host("linked.zip").c_str()), 0);
    ASSERT_EQ(Compress("two", "both.zip"), 0);
    // Still one file under both names: it was rewritten through its handle, not replaced.
    EXPECT_EQ(fs::hard_link_count(Host("both.zip")), 2u);
    EXPECT_EQ(Run("unzip -tq linked.zip"), 0);
    EXPECT_EQ(Run("mkdir x && unzip -q both.zip -d x && diff -r two x/two && cmp one.txt x/one.txt"), 0);
}

TEST_F(ZipFolder, TheShellHoldsTheArchiveWithoutSharingBehindItsWindowUntilItIsDone) {
    WriteFile("a.txt", "first");
    ASSERT_EQ(Compress("a.txt", "held"), 0);
    WriteFile("a.txt", "second");
    // Adding a.txt again asks whether to replace it: the question comes from the shell's thread while it
    // holds the archive and shows its window.
    bool asked = false;
    ScopedResponder responder([&](const vlx::DialogRequest& request) {
        asked = true;
        EXPECT_EQ(request.kind, vlx::DialogKind::ShellReplaceFile);
        EXPECT_EQ(U(request.source.c_str()), "a.txt");
        HANDLE probe = sys().CreateFileW(Win("held.zip"), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        EXPECT_EQ(probe, INVALID_HANDLE_VALUE);
        EXPECT_EQ(sys().GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
        const HWND window = sys().FindWindowW(nullptr, W(kTitle));
        EXPECT_NE(window, nullptr);
        EXPECT_TRUE(sys().IsWindowVisible(window));
        return IDYES;
    });
    EXPECT_EQ(Compress("a.txt", "held", 0), 0);
    EXPECT_TRUE(asked);
    EXPECT_EQ(progressPauses_, 30);  // a call that may ask questions waits out the whole six seconds
    EXPECT_EQ(sys().FindWindowW(nullptr, W(kTitle)), nullptr);
    EXPECT_EQ(Run("unzip -p held.zip a.txt | grep -qx second"), 0);
}

TEST_F(ZipFolder, ExtractsArchivesOfZipAndPythonStoredDeflatedZip64AndJapanese) {
    MakeTree("src");
    const char* makers[] = {
        "zip -qr made.zip src",
        "zip -qr0 made.zip src",
        "python3 -c \"import zipfile,os\nwith zipfile.ZipFile('made.zip','w',zipfile.ZIP_DEFLATED) as z:\n"
        " [z.write(os.path.join(d,n)) for d,_,ns in os.walk('src') for n in ns+_]\"",
        "python3 -c \"import zipfile,os\nwith zipfile.ZipFile('made.zip','w',zipfile.ZIP_STORED) as z:\n"
        " [z.write(os.path.join(d,n)) for d,_,ns in os.walk('src') for n in ns+_]\"",
        "python3 -c \"import zipfile,os\nwith zipfile.ZipFile('made.zip','w',zipfile.ZIP_DEFLATED) as z:\n"
        " [z.open(os.path.join(d,n),'w',force_zip64=True).write(open(os.path.join(d,n),'rb').read()) for d,_,ns in os.walk('src') for n in ns]\n"
        " z.mkdir('src/empty') if hasattr(z,'mkdir') else z.writestr('src/empty/','')\"",
    };
    for (const char* maker : makers) {
        fs::remove(Host("made.zip"));
        fs::remove_all(Host("out"));
        ASSERT_EQ(Run(maker), 0) << maker;
        EXPECT_EQ(ExtractFromZip(Win("made.zip"), Win("out"), 1), TRUE) << maker;
        EXPECT_EQ(Run("diff -r src out/src"), 0) << maker;
    }
}

TEST_F(ZipFolder, ABackslashedEntryGoesIntoAMissingFolderAndAMissingArchiveStillMakesIt) {
    ASSERT_EQ(Run("python3 -c \"import zipfile\nwith zipfile.ZipFile('ex.zip','w') as z:\n"
                  " z.writestr('a.txt','a')\n z.writestr('d\\\\\\\\b.txt','b')\""),
              0);
    EXPECT_EQ(ExtractFromZip(Win("ex.zip"), Win("out\\x"), 1), TRUE);
    EXPECT_EQ(Run("test -f out/x/a.txt && test -f out/x/d/b.txt"), 0);
    // The path is used as given: ex does not find ex.zip.
    EXPECT_EQ(ExtractFromZip(Win("ex"), Win("missing\\y"), 1), FALSE);
    EXPECT_TRUE(fs::is_directory(Host("missing/y")));
}

TEST_F(ZipFolder, BrokenOrHostileArchivesFailWithoutLeavingFilesBehind) {
    MakeTree("src");
    ASSERT_EQ(Run("zip -qr good.zip src"), 0);
    const auto size = fs::file_size(Host("good.zip"));
    const struct Case {
        const char* name;
        std::string make;
    } cases[] = {
        {"truncated", "head -c " + std::to_string(size / 2) + " good.zip > bad.zip"},
        {"no end record", "head -c " + std::to_string(size - 10) + " good.zip > bad.zip"},
        {"not an archive", "echo 'plain text' > bad.zip"},
        // A flipped byte inside a stored file's data: found by its checksum once the entry has been read.
        {"bad data", "zip -qr0 bad.zip src && python3 -c \"d=bytearray(open('bad.zip','rb').read()); "
                     "d[d.find(b'alpha')]^=0xff; open('bad.zip','wb').write(d)\""},
        {"wrong central offset", "cp good.zip bad.zip && python3 -c \"d=bytearray(open('bad.zip','rb').read()); "
                                 "d[-6:-2]=(int.from_bytes(d[-6:-2],'little')+7).to_bytes(4,'little'); open('bad.zip','wb').write(d)\""},
        {"parent name", "python3 -c \"import zipfile\nwith zipfile.ZipFile('bad.zip','w') as z:\n z.writestr('ok.txt','a')\n"
                        " i=zipfile.ZipInfo('x/../../evil.txt'); z.writestr(i,'e')\""},
        {"absolute name", "python3 -c \"import zipfile\nwith zipfile.ZipFile('bad.zip','w') as z:\n z.writestr('ok.txt','a')\n"
                          " i=zipfile.ZipInfo('/abs.txt'); z.writestr(i,'e')\""},
        {"drive letter", "python3 -c \"import zipfile\nwith zipfile.ZipFile('bad.zip','w') as z:\n z.writestr('ok.txt','a')\n"
                         " i=zipfile.ZipInfo('C:/drive.txt'); z.writestr(i,'e')\""},
    };
    for (const Case& c : cases) {
        fs::remove(Host("bad.zip"));
        fs::remove_all(Host("dest"));
        ASSERT_EQ(Run(c.make), 0) << c.name;
        EXPECT_EQ(ExtractFromZip(Win("bad.zip"), Win("dest"), 1), FALSE) << c.name;
        EXPECT_TRUE(fs::is_empty(Host("dest"))) << c.name;
        EXPECT_FALSE(fs::exists(Host("evil.txt")) || fs::exists("/abs.txt")) << c.name;
    }
}

TEST_F(ZipFolder, RefusedSourcesAndArchivesGiveTheirCodesWithoutAnArchive) {
    MakeFolder("empty");
    WriteFile("a.txt", "a");
    EXPECT_EQ(Compress("missing", "m"), -1);
    EXPECT_EQ(Compress("empty", "e"), -2);
    EXPECT_FALSE(fs::exists(Host("m.zip")) || fs::exists(Host("e.zip")));
    // A file that is not an archive under a .zip name: the shell cannot add to it, and says so at once.
    WriteFile("text.zip", "not an archive");
    EXPECT_EQ(Compress("a.txt", "text.zip"), 0);  // the copy starts; the archive is left as it was
    EXPECT_NE(vlx::WaitForShellCopies(), static_cast<DWORD>(ERROR_SUCCESS));
    std::ifstream in(Host("text.zip"));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "not an archive");
}

}  // namespace
