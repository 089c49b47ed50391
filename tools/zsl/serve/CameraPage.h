#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

/// A camera in a browser on this machine.
namespace zebcam::tool::serve {

/// What the page shows and does. Called on the page's own thread, one at a time.
struct CameraPageSource {
    /// The newest picture as JPEG; none: there is none yet.
    std::function<std::optional<std::string>()> preview;
    /// The picture of a frame of a capture as JPEG; none: it is not there any more.
    std::function<std::optional<std::string>(uint32_t requestNo, size_t index)> shot;
    /// What there is to tell, as JSON: page.js says which.
    std::function<std::string()> state;
    std::function<void()> press;
};

/**
 * Serves a page with preview, shutter button and the latest captures, on 127.0.0.1 only. Its
 * address has a random part, without which everything is refused (403), as is what was sent to
 * another host name or by another page: no other user and no page of the network can look or press.
 */
class CameraPage {
public:
    /// Begins to serve; `port` 0: any that is free. Throws InputError when the port cannot be had.
    CameraPage(uint16_t port, CameraPageSource source);
    ~CameraPage();
    CameraPage(CameraPage const&) = delete;
    CameraPage& operator=(CameraPage const&) = delete;

    /// For a browser: `http://127.0.0.1:PORT/TOKEN/`.
    std::string const& address() const;

private:
    class Server;
    std::unique_ptr<Server> const mServer;
};

}  // namespace zebcam::tool::serve
