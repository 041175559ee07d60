// The source of a snapshot's data.
#pragma once

#include <string>

namespace vorna {

enum class DataSourceKind { DataModel = 0, EventPayload = 1 };

struct DataSource {
    DataSourceKind kind = DataSourceKind::DataModel;
    std::wstring xpath;
    // The full path of the XSLT file that transforms the payload; empty for none. Only for EventPayload.
    std::wstring transformFile;
    // Namespace declarations for the XPath, which the aggregator receives. Not used for EventPayload.
    std::wstring prefixes;

    bool operator==(const DataSource&) const = default;
};

} // namespace vorna
