// Documents of every encoding that people's editors write.

#include "tools/TextFile.h"
#include "support/Support.h"
#include "tools/Failure.h"

#include <fstream>

using namespace vornactl;
using namespace std::string_literals;

namespace {

HRESULT Refusal(const std::string& bytes) {
    try {
        DecodeDocument(bytes, L"a.xml");
        return S_OK;
    } catch (const Failure& failed) {
        EXPECT_NE(failed.doing.find(L"a.xml"), std::wstring::npos);
        return failed.code;
    }
}

TEST(TextFile, ReadsEveryEncodingWithAndWithoutMark) {
    for (const std::string& bytes : {
             "<a>\xC3\xBC</a>"s,
             "\xEF\xBB\xBF<a>\xC3\xBC</a>"s,
             "<\0a\0>\0\xFC\0<\0/\0a\0>\0"s,
             "\xFF\xFE<\0a\0>\0\xFC\0<\0/\0a\0>\0"s,
             "\0<\0a\0>\0\xFC\0<\0/\0a\0>"s,
             "\xFE\xFF\0<\0a\0>\0\xFC\0<\0/\0a\0>"s,
             "<?xml version='1.0' encoding='UTF-8'?><a>\xC3\xBC</a>"s,
         })
        EXPECT_EQ(DecodeDocument(bytes, L"a.xml"), L"<a>\u00FC</a>");
}

TEST(TextFile, KeepsProcessingInstructionsThatOnlyBeginLikeADeclaration) {
    EXPECT_EQ(DecodeDocument("<?xml-stylesheet href='a'?><a/>", L"a.xml"), L"<?xml-stylesheet href='a'?><a/>");
}

TEST(TextFile, RefusesWhatIsNoDocumentText) {
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_INVALID_DATA), Refusal(""));
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_INVALID_DATA), Refusal(" \r\n\t"));
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_INVALID_DATA), Refusal("\xEF\xBB\xBF"));
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION), Refusal("<a>\xFC</a>"));
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION), Refusal("\xFF\xFE<\0a"s));
    EXPECT_HR(HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION),
              Refusal("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a/>"));
}

TEST(TextFile, NamesAFileThatCannotBeRead) {
    support::TestFolder folder;
    for (const auto& path : {folder.Path() / "missing.xml", folder.Path()}) {
        try {
            ReadDocument(path.wstring());
            ADD_FAILURE() << "read";
        } catch (const Failure& failed) {
            EXPECT_NE(failed.doing.find(path.wstring()), std::wstring::npos);
            EXPECT_HR(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), failed.code);
        }
    }
}

TEST(TextFile, ReplacesAFileByUtf8) {
    support::TestFolder folder;
    const auto path = folder.Path() / "out.xml";
    WriteDocument(path.wstring(), std::wstring(5000, L'x'));
    WriteDocument(path.wstring(), L"<a>\u20AC</a>");
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(bytes, "<a>\xE2\x82\xAC</a>");
}

} // namespace
