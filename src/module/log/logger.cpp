#include "module/log/logger.h"

namespace sentrel {

Logger TheLogger;

namespace {

void AppendDigits(std::u16string& out, std::uint64_t value, unsigned base, std::size_t minWidth) {
    static constexpr char16_t kDigits[] = u"0123456789ABCDEF";
    char16_t buffer[20];
    std::size_t count = 0;
    do {
        buffer[count++] = kDigits[value % base];
        value /= base;
    } while (value != 0);
    for (; count < minWidth; ++count) {
        buffer[count] = u'0';
    }
    while (count > 0) {
        out.push_back(buffer[--count]);
    }
}

void AppendHexLower(std::u16string& out, std::uint64_t value) {
    const std::size_t start = out.size();
    AppendDigits(out, value, 16, 1);
    for (std::size_t i = start; i < out.size(); ++i) {
        if (out[i] >= u'A' && out[i] <= u'F') {
            out[i] = static_cast<char16_t>(out[i] - u'A' + u'a');
        }
    }
}

}  // namespace

std::u16string FormatLogMessage(std::u16string_view format,
                                std::span<const LogArgument> arguments) {
    std::u16string out;
    out.reserve(format.size() + 32);
    std::size_t next = 0;
    for (std::size_t i = 0; i < format.size(); ++i) {
        const char16_t ch = format[i];
        if (ch != u'%' || i + 1 == format.size()) {
            out.push_back(ch);
            continue;
        }
        const char16_t conversion = format[++i];
        if (conversion == u'%') {
            out.push_back(u'%');
            continue;
        }
        if (conversion != u's' && conversion != u'd' && conversion != u'u' && conversion != u'x' &&
            conversion != u'p') {
            // Not a conversion the component uses: keep it as written.
            out.push_back(u'%');
            out.push_back(conversion);
            continue;
        }
        if (next == arguments.size()) {
            continue;  // a missing argument prints nothing rather than reading past the list
        }
        const LogArgument& argument = arguments[next++];
        const std::uint64_t bits = argument.bits();
        switch (conversion) {
            case u's':
                out.append(argument.text());
                break;
            case u'd': {
                const auto value = static_cast<std::int32_t>(static_cast<std::uint32_t>(bits));
                if (value < 0) {
                    out.push_back(u'-');
                }
                const std::int64_t wide = value;
                AppendDigits(out, static_cast<std::uint64_t>(wide < 0 ? -wide : wide), 10, 1);
                break;
            }
            case u'u':
                AppendDigits(out, static_cast<std::uint32_t>(bits), 10, 1);
                break;
            case u'x':
                AppendHexLower(out, static_cast<std::uint32_t>(bits));
                break;
            default:  // 'p'
                AppendDigits(out, bits, 16, 2 * sizeof(void*));
                break;
        }
    }
    return out;
}

Logger::Logger(std::ptrdiff_t gateCount, std::chrono::milliseconds gateWait)
    : gateFree_(gateCount), gateWait_(gateWait) {}

LogSink Logger::InstallSink(LogSink sink) {
    return sink_.exchange(sink);
}

std::int32_t Logger::LogArguments(std::int32_t level, const char16_t* format,
                                  std::span<const LogArgument> arguments) {
    {
        std::unique_lock lock(gateMutex_);
        if (!gateOpened_.wait_for(lock, gateWait_, [this] { return gateFree_ > 0; })) {
            return kResultGateClosed;  // nothing was taken, so nothing is released
        }
        --gateFree_;
    }
    struct GateRelease {
        Logger& logger;
        ~GateRelease() {
            {
                const std::lock_guard lock(logger.gateMutex_);
                ++logger.gateFree_;
            }
            logger.gateOpened_.notify_one();
        }
    } release{*this};
    const LogSink sink = sink_.load();
    if (sink == nullptr) {
        return kResultNoSink;
    }
    const std::u16string message =
        FormatLogMessage(format ? std::u16string_view(format) : std::u16string_view(), arguments);
    return sink(level, message);
}

}  // namespace sentrel
