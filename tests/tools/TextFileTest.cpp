// Reading and writing of documents in files.

#include "tools/TextFile.h"
#include "Refusal.h"

using namespace vornactl;

namespace {

class TextFile : public testing::Test {
  protected:
    static HRESULT Read(const std::filesystem::path& path) {
        return Refusal(path.wstring(), [&] { ReadDocument(path.wstring()); });
    }

    support::TestFolder folder_;
    const std::filesystem::path file_ = folder_.Path() / "a.xml";
};

TEST_F(TextFile, ReportsAFileThatHasNoDocumentText) {
    const struct {
        std::string bytes;
        HRESULT result;
    } cases[] = {
        {"<a>\xC3\xBC</a>", S_OK},
        {"", HRESULT_FROM_WIN32(ERROR_INVALID_DATA)},
        {"\xEF\xBB\xBF<?xml version='1.0'?> \r\n\t", HRESULT_FROM_WIN32(ERROR_INVALID_DATA)},
        {"<a>\xFC</a>", HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION)},
    };
    for (const auto& each : cases) {
        support::WriteFileBytes(file_, each.bytes);
        EXPECT_HR(each.result, Read(file_));
    }
}

TEST_F(TextFile, ReportsAFileThatCannotBeRead) {
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), Read(file_));
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), Read(folder_.Path()));
}

TEST_F(TextFile, ReplacesAFileByUtf8) {
    WriteDocument(file_.wstring(), std::wstring(5000, L'x'));
    WriteDocument(file_.wstring(), L"<a>\u20AC</a>");
    EXPECT_EQ(support::ReadFileBytes(file_), "<a>\xE2\x82\xAC</a>");
}

} // namespace
