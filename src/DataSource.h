// Where the data of a snapshot come from.
#pragma once

#include <string>

namespace vorna {

enum class DataSourceKind { DataModel = 0, EventPayload = 1 };

struct DataSource {
    DataSourceKind kind = DataSourceKind::DataModel;
    std::wstring xpath;
    // XSLT file applied to the payload; only for EventPayload.
    std::wstring transformFile;
    // Namespace declarations for the XPath; the aggregator's second argument for DataModel.
    std::wstring prefixes;

    bool operator==(const DataSource&) const = default;
};

} // namespace vorna
