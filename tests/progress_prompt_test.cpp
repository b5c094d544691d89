// The copy progress routine and the overwrite prompt.
#include <gtest/gtest.h>

#include "../copy/copy_internal.h"
#include "support/copy_support.h"

namespace {

using namespace testing_support;

constexpr LONGLONG kGiB = 1LL << 30;

TEST(CopyPercentage, IsTruncatedAndExactForHugeFiles) {
    const struct Case {
        LONGLONG total, done;
        int percent;
    } cases[] = {
        {1000, 999, 99}, {1000, 1000, 100}, {1000, 9, 0}, {0, 500, 0}, {-1, 500, 0},
        {5 * kGiB, 5 * kGiB - 1, 99}, {5 * kGiB, kGiB, 20},
        {50 * kGiB, 50 * kGiB - 1, 99}, {50 * kGiB, 50 * kGiB, 100}, {50 * kGiB, 536870912, 1},  // half a GiB of 50 is 1%
    };
    for (const Case& c : cases) EXPECT_EQ(CopyPercentage(c.total, c.done), c.percent) << c.total << " / " << c.done;
}

TEST(CopyProgressRoutine, SendsTheRangeThenThePositionForChunksAndStreamSwitchesOnly) {
    ProgressRecorder bar;
    // Other reasons, and no control, draw nothing; an empty file shows 0.
    const struct {
        LONGLONG total, done;
        DWORD reason;
        void* control;
    } calls[] = {{1000, 0, CALLBACK_STREAM_SWITCH, &bar.control}, {1000, 999, CALLBACK_CHUNK_FINISHED, &bar.control},
                 {50 * kGiB, 50 * kGiB, CALLBACK_CHUNK_FINISHED, &bar.control}, {1000, 500, 2, &bar.control},
                 {1000, 500, CALLBACK_CHUNK_FINISHED, nullptr}, {0, 0, CALLBACK_CHUNK_FINISHED, &bar.control}};
    for (const auto& c : calls) {
        const LARGE_INTEGER total{.QuadPart = c.total}, done{.QuadPart = c.done};
        EXPECT_EQ(CopyProgressRoutine(total, done, total, done, 1, c.reason, nullptr, nullptr, c.control), DWORD{PROGRESS_CONTINUE});
    }
    EXPECT_EQ(bar.log, "R 0 R 99 R 100 R 0 ");  // the range again before every position
}

TEST(AskReplaceOrSkip, ShowsTheExactPromptAndReturnsTheButtonPressed) {
    const HWND owner = reinterpret_cast<HWND>(0x1234);
    const std::pair<int, int> answers[] = {{kReplaceButton, 100}, {kSkipButton, 101}, {kCancelCopyButton, 102},
                                           {IDCANCEL, 2},  // closed with Esc
                                           {vlx::kDialogCannotBeShown, 0}};
    for (const auto& [userAnswer, result] : answers) {
        ScopedResponder user([&](const vlx::DialogRequest& request) {
            const TASKDIALOGCONFIG& c = *request.taskDialog;
            EXPECT_EQ(request.kind, vlx::DialogKind::TaskDialog);
            EXPECT_EQ(c.cbSize, 160u);
            EXPECT_EQ(HWND(c.hwndParent), owner);  // copied out: the structure is packed as on Windows
            EXPECT_EQ(HINSTANCE(c.hInstance), nullptr);
            EXPECT_EQ(c.dwFlags, 0x18);  // may be closed with Esc, buttons as command links
            EXPECT_EQ(c.dwCommonButtons, 0);
            EXPECT_EQ(U(c.pszWindowTitle), "ファイルの置換またはスキップ");
            EXPECT_EQ(c.pszMainInstruction == nullptr ? "(null)" : U(c.pszMainInstruction), "");
            // The name goes between the quotes as it was passed, backslashes and percent signs included.
            EXPECT_EQ(U(c.pszContent), "宛先には既に \"C:\\dir\\a b\\%s.txt\" という名前のファイルが存在します");
            std::vector<std::pair<int, std::string>> buttons;
            for (UINT i = 0; i < c.cButtons; ++i) buttons.emplace_back(c.pButtons[i].nButtonID, U(c.pButtons[i].pszButtonText));
            EXPECT_EQ(buttons, (std::vector<std::pair<int, std::string>>{{100, "ファイルを置き換える(&R)"},
                                                                          {101, "ファイルは置き換えずスキップする(&S)"},
                                                                          {102, "コピーをキャンセルする(&C)"}}));
            EXPECT_EQ(c.nDefaultButton, 0);
            EXPECT_EQ(c.cRadioButtons, 0u);
            EXPECT_FALSE(c.hMainIcon != nullptr || c.pRadioButtons != nullptr || c.nDefaultRadioButton != 0 ||
                         c.pszVerificationText != nullptr || c.pszExpandedInformation != nullptr ||
                         c.pszExpandedControlText != nullptr || c.pszCollapsedControlText != nullptr || c.hFooterIcon != nullptr ||
                         c.pszFooter != nullptr || c.pfCallback != nullptr || c.lpCallbackData != 0 || c.cxWidth != 0);
            return userAnswer;
        });
        EXPECT_EQ(AskReplaceOrSkip(W("C:\\dir\\a b\\%s.txt"), owner), result) << userAnswer;
    }
    // No user at all: the dialog cannot be shown.
    EXPECT_EQ(AskReplaceOrSkip(_T("a.txt"), nullptr), 0);
}

}  // namespace
