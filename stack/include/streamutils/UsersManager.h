#pragma once

#include <streamutils/StreamId.h>
#include <utils/RefBase.h>
#include <zebcam/ThreadSafety.h>

#include <cstddef>
#include <string>
#include <vector>

namespace NSCam::v3::Utils {

/// Keeps track of who uses one image stream buffer for one pipeline frame. A buffer that serves
/// another frame gets a new manager. Thread-safe.
class UsersManager : public virtual android::RefBase {
public:
    UsersManager(StreamId_T streamId, char const* streamName);

    StreamId_T getStreamId() const { return mStreamId; }
    std::string const& getStreamName() const { return mStreamName; }

    /// Adds a user and returns its id, which markReleased wants.
    size_t enqueUser(std::string userName);

    /// The user no longer needs the buffer. False for an unknown or already released id.
    bool markReleased(size_t userId);

    /// Users that have not released the buffer yet.
    size_t pendingUsers() const;

private:
    struct User {
        std::string name;
        bool released = false;
    };

    StreamId_T const mStreamId;
    std::string const mStreamName;
    mutable zebcam::Mutex mLock;
    std::vector<User> mUsers GUARDED_BY(mLock);
};

}  // namespace NSCam::v3::Utils
