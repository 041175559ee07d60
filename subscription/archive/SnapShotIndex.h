// The snapshot index of a subscription as text: <SnapShots> with one SnapShot element for each snapshot, in order of
// capture. A subscription without a capture has no index; its text is empty.
//
// Every operation parses the text again. Results: S_OK; 0x8000012D the text is not well-formed; 0x80000151 no XML
// accessor; E_FAIL. On failure the log has the reason, and the text must not be used any more.
#pragma once

#include "subscription/archive/SnapShot.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vorna {

class SnapShotIndex {
  public:
    // What to do with a snapshot whose Id already has an entry.
    enum class Known { Refresh, Refuse };

    SnapShotIndex() = default;
    explicit SnapShotIndex(std::wstring text) : text_(std::move(text)) {}

    const std::wstring& Text() const { return text_; }
    bool empty() const { return text_.empty(); }

    // Adds an entry, or updates the one with the same Id; with Known::Refuse the latter fails with 0x800700B7
    // (ERROR_ALREADY_EXISTS).
    [[nodiscard]] HRESULT Add(const SnapShot& snapShot, Known known);
    // Updates the entries of several snapshots in one pass. Snapshots without an entry are ignored.
    [[nodiscard]] HRESULT Refresh(std::span<const SnapShot> snapShots);
    [[nodiscard]] HRESULT Remove(std::wstring_view id);

    [[nodiscard]] HRESULT Read(std::vector<SnapShot>& snapShots) const;
    // The Id of the first entry. stream: the name of the index in the log.
    [[nodiscard]] HRESULT FindOldest(std::wstring_view stream, std::wstring& id) const;

  private:
    std::wstring text_;
};

} // namespace vorna
