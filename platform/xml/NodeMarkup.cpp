#include "platform/xml/NodeMarkup.h"

#include "common/xml/XmlEscape.h"

namespace keldan {

void AppendNode(XmlDocument& document, const XmlNode& node, std::wstring& markup) {
    switch (node.Type()) {
    case NODE_ATTRIBUTE:
        markup.append(L"<Attribute name=\"").append(node.LocalName()).append(L"\"");
        if (const std::wstring uri = node.NamespaceUri(); !uri.empty()) {
            markup.append(L" namespace=\"");
            vorna::AppendEscaped(markup, uri, vorna::XmlContext::Attribute);
            markup.append(L"\"");
        }
        markup.append(L">");
        vorna::AppendEscaped(markup, node.Text());
        markup.append(L"</Attribute>");
        break;
    case NODE_TEXT:
    case NODE_CDATA_SECTION:
        markup.append(L"<Text>");
        vorna::AppendEscaped(markup, node.Text());
        markup.append(L"</Text>");
        break;
    default:
        markup.append(document.Markup(node));
    }
}

} // namespace keldan
