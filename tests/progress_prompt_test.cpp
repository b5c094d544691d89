// The copy progress routine and the overwrite prompt.
#include <gtest/gtest.h>

#include "../copy/copy_internal.h"
#include "support/copy_support.h"

namespace {

using namespace testing_support;

constexpr LONGLONG kGiB = 1LL << 30;

TEST(CopyPercentage, IsTruncatedAndExactForHugeFiles) {
    struct Case {
        LONGLONG total, done;
        int percent;
    };
    const Case cases[] = {
        {1000, 999, 99},     {1000, 1000, 100},           {1000, 0, 0},
        {1000, 10, 1},       {1000, 9, 0},                {0, 0, 0},
        {0, 500, 0},         {-1, 500, 0},                {5 * kGiB, 5 * kGiB - 1, 99},
        {5 * kGiB, kGiB, 20}, {50 * kGiB, 25 * kGiB, 50}, {50 * kGiB, 50 * kGiB - 1, 99},
        {50 * kGiB, 50 * kGiB, 100}, {50 * kGiB, 536870912, 1},  // half a GiB of 50 is exactly 1%
    };
    for (const Case& c : cases) EXPECT_EQ(CopyPercentage(c.total, c.done), c.percent) << c.total << " / " << c.done;
}

LARGE_INTEGER Large(LONGLONG value) {
    LARGE_INTEGER result;
    result.QuadPart = value;
    return result;
}

DWORD CallRoutine(LONGLONG total, LONGLONG done, DWORD reason, void* data) {
    return CopyProgressRoutine(Large(total), Large(done), Large(total), Large(done), 1, reason, nullptr, nullptr, data);
}

TEST(CopyProgressRoutine, SendsTheRangeThenThePositionOnEveryCall) {
    ProgressRecorder bar;
    EXPECT_EQ(CallRoutine(1000, 0, CALLBACK_STREAM_SWITCH, &bar.control), static_cast<DWORD>(PROGRESS_CONTINUE));
    EXPECT_EQ(CallRoutine(1000, 999, CALLBACK_CHUNK_FINISHED, &bar.control), static_cast<DWORD>(PROGRESS_CONTINUE));
    EXPECT_EQ(CallRoutine(50 * kGiB, 50 * kGiB, CALLBACK_CHUNK_FINISHED, &bar.control), static_cast<DWORD>(PROGRESS_CONTINUE));
    EXPECT_EQ(bar.messages, (std::vector<ProgressMessage>{Range100(), Position(0), Range100(), Position(99), Range100(),
                                                          Position(100)}));
    EXPECT_EQ(bar.control.GetPos(), 100);
}

TEST(CopyProgressRoutine, DrawsNothingForOtherReasonsOrWithoutAControl) {
    ProgressRecorder bar;
    EXPECT_EQ(CallRoutine(1000, 500, 2, &bar.control), static_cast<DWORD>(PROGRESS_CONTINUE));
    EXPECT_EQ(CallRoutine(1000, 500, CALLBACK_CHUNK_FINISHED, nullptr), static_cast<DWORD>(PROGRESS_CONTINUE));
    EXPECT_TRUE(bar.messages.empty());
}

TEST(CopyProgressRoutine, AnEmptyFileShowsZero) {
    ProgressRecorder bar;
    CallRoutine(0, 0, CALLBACK_CHUNK_FINISHED, &bar.control);
    EXPECT_EQ(bar.Positions(), std::vector<int>{0});
}

// What the prompt showed, copied while the dialog was up.
struct ShownPrompt {
    UINT size = 0;
    HWND owner = nullptr;
    HINSTANCE instance = reinterpret_cast<HINSTANCE>(1);
    int flags = -1;
    int commonButtons = -1;
    std::string title, instruction, content;
    bool instructionIsNull = true;
    std::vector<std::pair<int, std::string>> buttons;
    int defaultButton = -1;
    UINT radioButtons = 1;
    bool anyOtherField = true;
};

ShownPrompt Describe(const TASKDIALOGCONFIG& c) {
    ShownPrompt shown;
    shown.size = c.cbSize;
    shown.owner = c.hwndParent;
    shown.instance = c.hInstance;
    shown.flags = c.dwFlags;
    shown.commonButtons = c.dwCommonButtons;
    shown.title = U(c.pszWindowTitle);
    shown.instructionIsNull = c.pszMainInstruction == nullptr;
    if (c.pszMainInstruction != nullptr) shown.instruction = U(c.pszMainInstruction);
    shown.content = U(c.pszContent);
    for (UINT i = 0; i < c.cButtons; ++i) shown.buttons.emplace_back(c.pButtons[i].nButtonID, U(c.pButtons[i].pszButtonText));
    shown.defaultButton = c.nDefaultButton;
    shown.radioButtons = c.cRadioButtons;
    shown.anyOtherField = c.hMainIcon != nullptr || c.pRadioButtons != nullptr || c.nDefaultRadioButton != 0 ||
                          c.pszVerificationText != nullptr || c.pszExpandedInformation != nullptr ||
                          c.pszExpandedControlText != nullptr || c.pszCollapsedControlText != nullptr ||
                          c.hFooterIcon != nullptr || c.pszFooter != nullptr || c.pfCallback != nullptr ||
                          c.lpCallbackData != 0 || c.cxWidth != 0;
    return shown;
}

TEST(AskReplaceOrSkip, ShowsTheExactPrompt) {
    ShownPrompt shown;
    ScopedResponder user([&](const vlx::DialogRequest& request) {
        EXPECT_EQ(request.kind, vlx::DialogKind::TaskDialog);
        shown = Describe(*request.taskDialog);
        return kReplaceButton;
    });
    HWND owner = reinterpret_cast<HWND>(0x1234);
    EXPECT_EQ(AskReplaceOrSkip(W("C:\\dir\\a b\\%s.txt"), owner), kReplaceButton);
    EXPECT_EQ(shown.size, 160u);
    EXPECT_EQ(shown.owner, owner);
    EXPECT_EQ(shown.instance, nullptr);
    EXPECT_EQ(shown.flags, TDF_ALLOW_DIALOG_CANCELLATION | TDF_USE_COMMAND_LINKS);
    EXPECT_EQ(shown.flags, 0x18);
    EXPECT_EQ(shown.commonButtons, 0);
    EXPECT_EQ(shown.title, "ファイルの置換またはスキップ");
    EXPECT_FALSE(shown.instructionIsNull);
    EXPECT_EQ(shown.instruction, "");
    // The name goes between the quotes as it was passed, backslashes and percent signs included.
    EXPECT_EQ(shown.content, "宛先には既に \"C:\\dir\\a b\\%s.txt\" という名前のファイルが存在します");
    EXPECT_EQ(shown.buttons, (std::vector<std::pair<int, std::string>>{{100, "ファイルを置き換える(&R)"},
                                                                         {101, "ファイルは置き換えずスキップする(&S)"},
                                                                         {102, "コピーをキャンセルする(&C)"}}));
    EXPECT_EQ(shown.defaultButton, 0);
    EXPECT_EQ(shown.radioButtons, 0u);
    EXPECT_FALSE(shown.anyOtherField);
}

TEST(AskReplaceOrSkip, ReturnsTheButtonPressedOrZeroWhenItCannotBeShown) {
    struct Case {
        int userAnswer;
        int result;
    };
    const Case cases[] = {
        {kReplaceButton, 100}, {kSkipButton, 101}, {kCancelCopyButton, 102}, {IDCANCEL, 2}, {vlx::kDialogCannotBeShown, 0},
    };
    for (const Case& c : cases) {
        ScopedResponder user([&](const vlx::DialogRequest&) { return c.userAnswer; });
        EXPECT_EQ(AskReplaceOrSkip(_T("a.txt"), nullptr), c.result) << c.userAnswer;
    }
    // No user at all: the dialog cannot be shown.
    EXPECT_EQ(AskReplaceOrSkip(_T("a.txt"), nullptr), 0);
}

}  // namespace
