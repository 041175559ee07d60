// Reading and writing of documents in files.

#include "tools/TextFile.h"
#include "support/Support.h"
#include "tools/Failure.h"

#include <fstream>

using namespace vornactl;

namespace {

class TextFile : public testing::Test {
  protected:
    // The result of reading the file; S_OK if nothing failed.
    static HRESULT Read(const std::filesystem::path& path) {
        try {
            ReadDocument(path.wstring());
            return S_OK;
        } catch (const Failure& failure) {
            EXPECT_NE(failure.action.find(path.wstring()), std::wstring::npos);
            return failure.result();
        }
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
        std::ofstream(file_, std::ios::binary) << each.bytes;
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
    std::ifstream file(file_, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(bytes, "<a>\xE2\x82\xAC</a>");
}

} // namespace
