#include "manager_client.h"

#include "com/class_factory.h"
#include "com/com_object.h"
#include "com/wide_text.h"
#include "manager/web_filter_manager.h"

namespace sentrel::test {

namespace {

std::u16string Element(const std::u16string& name, const std::u16string& content) {
    return u"<" + name + u">" + content + u"</" + name + u">";
}

std::u16string ListElement(const ListSpec& list) {
    const bool white = list.kind == ListKind::White;
    const std::u16string prefix = white ? u"WL" : u"BL";
    const std::u16string entry = prefix + (white ? u"AEntry" : u"DEntry");
    std::u16string entries;
    for (std::size_t i = 0; i < list.urls.size(); ++i) {
        const std::u16string number(1, static_cast<char16_t>(u'a' + i % 26));
        entries += Element(entry, Element(entry + u"Name", u"entry " + number) +
                                      Element(entry + u"Url", list.urls[i]));
    }
    return Element(white ? u"WhiteList" : u"BlackList",
                   Element(prefix + u"Id", list.id) + Element(prefix + u"Name", u"list") +
                       Element(prefix + (white ? u"Accepted" : u"Denied"), entries) +
                       Element(prefix + u"Exceptions", u""));
}

std::u16string Decimal(std::uint32_t number) {
    const std::string digits = std::to_string(number);
    return std::u16string(digits.begin(), digits.end());
}

}  // namespace

HRESULT CreateManagerInstance(IUnknown* outer, REFIID iid, void** object) {
    static ClassFactory factory(&ComObject<CWebFilterManager>::CreateInstance);
    return factory.CreateInstance(outer, iid, object);
}

ComPtr<IWebFilterManager> CreateManager() {
    ComPtr<IWebFilterManager> manager;
    if (FAILED(CreateManagerInstance(nullptr, IID_IWebFilterManager, manager.PutVoid()))) {
        manager.Reset();
    }
    return manager;
}

HRESULT SetContent(IWebFilterManager& manager, ::WebFilterType type, const char16_t* text) {
    const BSTR xml = text != nullptr ? SysAllocString(AsWide(text)) : nullptr;
    const HRESULT result = manager.SetFilterContent(type, xml);
    SysFreeString(xml);
    return result;
}

long Allowed(IWebFilterManager& manager, BSTR url) {
    long allowed = -1;
    return SUCCEEDED(manager.IsUrlAllowed(url, &allowed)) ? allowed : -1;
}

long Allowed(IWebFilterManager& manager, const char16_t* url) {
    const BSTR text = SysAllocString(AsWide(url));
    const long allowed = Allowed(manager, text);
    SysFreeString(text);
    return allowed;
}

FilterContent ContentOf(IWebFilterManager& manager) {
    FilterContent content;
    BSTR text = nullptr;
    content.result = manager.GetFilterContent(&content.type, &text, &content.refreshMode);
    if (text != nullptr) {
        content.text.assign(AsU16(text), SysStringLen(text));
        SysFreeString(text);
    }
    return content;
}

void PrintTo(const FilterContent& content, std::ostream* out) {
    *out << "{result 0x" << std::hex << static_cast<unsigned long>(content.result) << std::dec
         << ", type " << static_cast<int>(content.type) << ", refresh mode " << content.refreshMode
         << ", text \"" << AsciiOf(content.text) << "\"}";
}

FilterContent SucceededContent(::WebFilterType type, int refreshMode,
                               const std::u16string& document) {
    return {S_OK, type, refreshMode, kByteOrderMark + document};
}

ComPtr<IConnectionPoint> EventsPoint(IUnknown& object) {
    ComPtr<IConnectionPointContainer> container;
    ComPtr<IConnectionPoint> point;
    if (SUCCEEDED(object.QueryInterface(IID_IConnectionPointContainer, container.PutVoid()))) {
        container->FindConnectionPoint(IID_IWebFilterEvents, point.Put());
    }
    return point;
}

bool PumpMessagesUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
        if (condition()) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 10, QS_ALLINPUT);
    }
}

std::u16string PolicyDocument(std::uint32_t refreshMode, const std::vector<ListSpec>& lists) {
    std::u16string content =
        Element(u"WFVersion", u"1") + Element(u"WFRefreshMode", Decimal(refreshMode));
    for (const ListSpec& list : lists) {
        content += ListElement(list);
    }
    return Element(u"WebFilters", content);
}

std::u16string ListDocument(std::uint32_t refreshMode, ListKind kind,
                            const std::vector<std::u16string>& urls) {
    return PolicyDocument(refreshMode, {{kind, u"{0D6F3A52-91C4-4E0B-8A7D-2B5C1E9F4A36}", urls}});
}

std::u16string EmptyDocument(std::uint32_t refreshMode) {
    return PolicyDocument(refreshMode, {});
}

std::string AsciiOf(std::u16string_view text) {
    std::string ascii;
    for (const char16_t character : text) {
        ascii.push_back(character < 0x80 ? static_cast<char>(character) : '?');
    }
    return ascii;
}

}  // namespace sentrel::test
