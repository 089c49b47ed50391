#include "serve/CameraPage.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/random.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/InputError.h"
#include "serve/PageFiles.h"

namespace zebcam::tool::serve {

namespace {

constexpr unsigned kMostConnections = 32;
constexpr unsigned kIdleSeconds = 30;
/// Nothing but what came from here, nobody's frame, and no address told to anybody.
constexpr std::pair<char const*, char const*> kHeaders[] = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob: data:; "
     "connect-src "
     "'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"Cache-Control", "no-store"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Referrer-Policy", "no-referrer"},
    {"X-Content-Type-Options", "nosniff"}};

std::string randomToken() {
    std::array<uint8_t, 16> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw base::InputError(fmt::format("--serve: no random numbers: {}", std::strerror(errno)));
    }
    std::string text;
    for (uint8_t const byte : bytes) {
        text += fmt::format("{:02x}", byte);
    }
    return text;
}

struct Answer {
    unsigned status = MHD_HTTP_OK;
    char const* type = "text/plain; charset=utf-8";
    std::string content;
};

/// Takes as long whatever `found` begins with, so that nobody finds the token piece by piece.
bool isToken(std::string_view found, std::string_view token) {
    unsigned difference = found.size() == token.size() ? 0 : 1;
    for (size_t i = 0; i < token.size(); ++i) {
        difference |= static_cast<unsigned char>(token[i] ^ (i < found.size() ? found[i] : 0));
    }
    return difference == 0;
}

/// `REQUEST-INDEX.jpg`.
std::optional<std::pair<uint32_t, size_t>> shotOf(std::string_view name) {
    std::pair<uint32_t, size_t> shot;
    char const* const end = name.data() + name.size();
    auto const request = std::from_chars(name.data(), end, shot.first);
    if (request.ec != std::errc() || request.ptr == end || *request.ptr != '-') {
        return std::nullopt;
    }
    auto const index = std::from_chars(request.ptr + 1, end, shot.second);
    return index.ec == std::errc() && std::string_view(index.ptr, end) == ".jpg"
               ? std::optional(shot)
               : std::nullopt;
}

}  // namespace

class CameraPage::Server {
public:
    Server(uint16_t port, CameraPageSource source)
        : mSource(std::move(source)), mToken(randomToken()) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        mDaemon = MHD_start_daemon(MHD_USE_AUTO | MHD_USE_INTERNAL_POLLING_THREAD, port, nullptr,
                                   nullptr, take, this, MHD_OPTION_SOCK_ADDR, &address,
                                   MHD_OPTION_CONNECTION_LIMIT, kMostConnections,
                                   MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds, MHD_OPTION_END);
        if (mDaemon == nullptr) {
            throw base::InputError(fmt::format("--serve {}: expected a free port, found {}", port,
                                               std::strerror(errno)));
        }
        uint16_t const bound = MHD_get_daemon_info(mDaemon, MHD_DAEMON_INFO_BIND_PORT)->port;
        mHost = fmt::format("127.0.0.1:{}", bound);
        mLocalHost = fmt::format("localhost:{}", bound);
        mAddress = fmt::format("http://{}/{}/", mHost, mToken);
    }
    ~Server() { MHD_stop_daemon(mDaemon); }
    Server(Server const&) = delete;
    Server& operator=(Server const&) = delete;

    std::string mAddress;

private:
    static MHD_Result take(void* self, MHD_Connection* connection, char const* path,
                           char const* method, char const*, char const*, size_t* bytes,
                           void** state) {
        // The first call is for the head alone, and what is sent with it is of no interest.
        if (*state == nullptr) {
            *state = self;
            return MHD_YES;
        }
        if (*bytes > 0) {
            *bytes = 0;
            return MHD_YES;
        }
        return reply(connection, static_cast<Server*>(self)->answer(connection, path, method));
    }

    static MHD_Result reply(MHD_Connection* connection, Answer const& answer) {
        MHD_Response* const response = MHD_create_response_from_buffer(
            answer.content.size(), const_cast<char*>(answer.content.data()), MHD_RESPMEM_MUST_COPY);
        for (auto const& [name, value] : kHeaders) {
            MHD_add_response_header(response, name, value);
        }
        MHD_add_response_header(response, "Content-Type", answer.type);
        MHD_Result const queued = MHD_queue_response(connection, answer.status, response);
        MHD_destroy_response(response);
        return queued;
    }

    Answer answer(MHD_Connection* connection, std::string_view path, std::string_view method) {
        auto const header = [connection](char const* name) {
            char const* const value =
                MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
            return std::string_view(value != nullptr ? value : "");
        };
        // A page of the network may have its name lead here.
        std::string_view const host = header(MHD_HTTP_HEADER_HOST);
        std::string_view const origin = header(MHD_HTTP_HEADER_ORIGIN);
        bool const isOurs = (host == mHost || host == mLocalHost) &&
                            (origin.empty() || origin == fmt::format("http://{}", host));
        size_t const end = path.find('/', 1);
        if (!isOurs || end == std::string_view::npos || !isToken(path.substr(1, end - 1), mToken)) {
            return {MHD_HTTP_FORBIDDEN, "text/plain", "the address is not this camera's\n"};
        }
        try {
            return method == MHD_HTTP_METHOD_POST ? change(path.substr(end + 1))
                   : method == MHD_HTTP_METHOD_GET
                       ? show(path.substr(end + 1))
                       : Answer{MHD_HTTP_METHOD_NOT_ALLOWED, "text/plain", ""};
        } catch (std::exception const& error) {
            // Which must not get through the server.
            return {MHD_HTTP_INTERNAL_SERVER_ERROR, "text/plain", error.what()};
        }
    }

    Answer change(std::string_view name) {
        if (name != "press") {
            return {MHD_HTTP_NOT_FOUND, "text/plain", ""};
        }
        mSource.press();
        return {MHD_HTTP_NO_CONTENT, "text/plain", ""};
    }

    Answer show(std::string_view name) {
        constexpr std::string_view kShots = "shots/";
        auto const jpeg = [](std::optional<std::string> content) -> Answer {
            return content ? Answer{MHD_HTTP_OK, "image/jpeg", std::move(*content)}
                           : Answer{MHD_HTTP_NOT_FOUND, "text/plain", ""};
        };
        if (name.empty()) {
            return {MHD_HTTP_OK, "text/html; charset=utf-8", PAGE_HTML};
        }
        if (name == "page.js") {
            return {MHD_HTTP_OK, "text/javascript; charset=utf-8", PAGE_JS};
        }
        if (name == "page.css") {
            return {MHD_HTTP_OK, "text/css; charset=utf-8", PAGE_CSS};
        }
        if (name == "state.json") {
            return {MHD_HTTP_OK, "application/json", mSource.state()};
        }
        if (name == "preview.jpg") {
            return jpeg(mSource.preview());
        }
        if (name.starts_with(kShots)) {
            auto const shot = shotOf(name.substr(kShots.size()));
            return jpeg(shot ? mSource.shot(shot->first, shot->second) : std::nullopt);
        }
        return {MHD_HTTP_NOT_FOUND, "text/plain", ""};
    }

    CameraPageSource const mSource;
    std::string const mToken;
    std::string mHost;
    std::string mLocalHost;
    MHD_Daemon* mDaemon = nullptr;
};

CameraPage::CameraPage(uint16_t port, CameraPageSource source)
    : mServer(std::make_unique<Server>(port, std::move(source))) {
}

CameraPage::~CameraPage() = default;

std::string const& CameraPage::address() const {
    return mServer->mAddress;
}

}  // namespace zebcam::tool::serve
