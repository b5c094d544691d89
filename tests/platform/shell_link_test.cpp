// Shell links on the Linux shell, read through GetShortCutTargetPath: samples written by other tools give
// their targets and arguments, and links broken in every way fail cleanly without touching the buffer.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "../support/host_fixture.h"

namespace {

using namespace testing_support;
namespace fs = std::filesystem;

const std::string kSamples = std::string(VELMORA_TEST_DATA) + "/lnk/";

std::vector<char> ReadSample(const std::string& name) {
    std::ifstream in(kSamples + name, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(in), {});
}

class ShellLink : public HostFolderTest {
protected:
    void SetUp() override {
        HostFolderTest::SetUp();
        comBefore_ = vlx::LiveComObjectCount();
        setenv("ProgramFiles", "C:\\Program Files (test)", 1);
        setenv("TEMP", "C:\\Temp", 1);
    }
    void TearDown() override {
        EXPECT_EQ(vlx::LiveComObjectCount(), comBefore_);
        EXPECT_EQ(vlx::ComApartmentDepth(), 0);
        unsetenv("ProgramFiles");
        HostFolderTest::TearDown();
    }
    CString Sample(const std::string& name) const { return W(U(vlx::HostToWin32Path(kSamples + name).c_str())); }
    void Write(const std::string& name, const std::vector<char>& bytes) const {
        std::ofstream(Host(name), std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }

    size_t comBefore_ = 0;
};

TEST_F(ShellLink, SamplesGiveTheirTargetsExpandedAndTheirArgumentsAsStored) {
    const struct Case {
        const char *file, *text;
    } cases[] = {
        {"a_plain.lnk", "C:\\Tools\\app.exe "},
        {"a_plain_existing.lnk", "C:\\Tools\\app.exe "},
        {"b2_envpath_expsz.lnk", "C:\\Program Files\\Tool\\t.exe /p a.txt"},
        {"c_envargs.lnk", "C:\\Tools\\app.exe /log %TEMP%\\app.log"},
        {"d_japanese_cp932.lnk", "C:\\日本語フォルダ\\ツール.exe /p a.txt"},
        // The environment block wins over the LinkInfo path and is expanded with this environment.
        {"e_handmade_expsz.lnk", "C:\\Program Files (test)\\Tool\\t.exe /p a.txt"},
        {"f_handmade_unicode.lnk", "C:\\日本語フォルダ\\ツール.exe /p a.txt"},
    };
    for (const Case& c : cases) {
        WCHAR buffer[MAX_PATH] = {};
        EXPECT_EQ(GetShortCutTargetPath(Sample(c.file), buffer, nullptr), TRUE) << c.file;
        EXPECT_EQ(U(buffer), c.text) << c.file;
    }
}

TEST_F(ShellLink, FindDataComesFromTheLinksHeader) {
    WCHAR buffer[MAX_PATH] = {};
    WIN32_FIND_DATAW data;
    std::memset(&data, 0xAB, sizeof data);
    // The header's attributes, times and size, with the target's name.
    ASSERT_EQ(GetShortCutTargetPath(Sample("e_handmade_expsz.lnk"), buffer, &data), TRUE);
    EXPECT_EQ(data.dwFileAttributes, static_cast<DWORD>(FILE_ATTRIBUTE_ARCHIVE));
    EXPECT_EQ(U(data.cFileName), "t.exe");
    EXPECT_EQ(data.nFileSizeLow, 0u);
    EXPECT_EQ(data.ftLastWriteTime.dwHighDateTime, 0u);
    EXPECT_EQ(data.nFileSizeHigh, 0u);
}

TEST_F(ShellLink, BrokenLinksFailCleanlyAndLeaveTheBuffer) {
    std::vector<std::pair<std::string, std::vector<char>>> broken;
    // Every truncation of a sample with all kinds of fields.
    for (const char* sample : {"e_handmade_expsz.lnk", "d_japanese_cp932.lnk"}) {
        const std::vector<char> whole = ReadSample(sample);
        for (size_t length = 0; length < whole.size(); ++length)
            broken.emplace_back(std::string(sample) + " cut at " + std::to_string(length), std::vector<char>(whole.begin(), whole.begin() + static_cast<long>(length)));
    }
    const std::vector<char> unicode = ReadSample("f_handmade_unicode.lnk");
    auto patched = [&](const char* what, size_t at, std::vector<BYTE> bytes) {
        std::vector<char> copy = unicode;
        for (size_t i = 0; i < bytes.size(); ++i) copy[at + i] = static_cast<char>(bytes[i]);
        broken.emplace_back(what, copy);
    };
    patched("header size", 0, {0x4D});
    patched("class", 4, {0x02});
    patched("link info size past the file", 0x4C, {0xFF, 0xFF, 0, 0});
    patched("unicode path offset past its block", 0x4C + 28, {0xF0, 0x0F});
    const std::vector<char> arguments = ReadSample("b2_envpath_expsz.lnk");
    std::vector<char> longArguments = arguments;
    // The arguments' count stands just before their first unit: make it run past the file.
    const char units[] = {'/', 0, 'p', 0};
    const size_t count = static_cast<size_t>(std::search(arguments.begin(), arguments.end(), units, units + 4) - arguments.begin()) - 2;
    ASSERT_LT(count, arguments.size());
    longArguments[count] = static_cast<char>(0xFF);
    longArguments[count + 1] = static_cast<char>(0x7F);
    broken.emplace_back("argument size past the file", longArguments);
    broken.emplace_back("not a link", std::vector<char>{'h', 'e', 'l', 'l', 'o'});

    for (const auto& [what, bytes] : broken) {
        Write("broken.lnk", bytes);
        WCHAR buffer[MAX_PATH] = u"untouched";
        EXPECT_EQ(GetShortCutTargetPath(Win("broken.lnk"), buffer, nullptr), FALSE) << what;
        EXPECT_EQ(U(buffer), "untouched") << what;
    }
    WCHAR buffer[MAX_PATH] = u"untouched";
    EXPECT_EQ(GetShortCutTargetPath(Win("missing.lnk"), buffer, nullptr), FALSE);
    EXPECT_EQ(U(buffer), "untouched");
}

}  // namespace
