#pragma once

#include "channels/zmq/FileLock.h"

#include <optional>
#include <string>
#include <sys/types.h>
#include <zmq.hpp>

namespace mirel {

struct ZmqChannelOptions;

/// The address where a socket listens. The file of an ipc socket is the user's alone, and is
/// removed at the end. So is PATH.lock beside it, which keeps others from starting there meanwhile.
class ZmqEndpoint {
public:
    /// Makes the socket listen where the options say. `MirelException` when the address is taken,
    /// cannot be had, or is one that the options do not allow.
    ZmqEndpoint(zmq::socket_t& socket, const ZmqChannelOptions& options);

    /// To be destroyed before the socket is closed: as long as that listens, nobody else takes the
    /// path.
    ~ZmqEndpoint();

    ZmqEndpoint(const ZmqEndpoint&) = delete;
    ZmqEndpoint& operator=(const ZmqEndpoint&) = delete;

    /// With the port that the system chose if it was asked to.
    const std::string& url() const { return m_url; }

private:
    void takePath(const std::string& url);
    void bind(zmq::socket_t& socket, const std::string& url);

    std::string m_url;
    std::optional<FileLock> m_lock; ///< of m_path

    // The file that was made, if any; another one at its path is not ours to remove.
    std::string m_path;
    dev_t m_device = 0;
    ino_t m_inode = 0;
};

} // namespace mirel
