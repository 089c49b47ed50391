#include <streamutils/UsersManager.h>

#include <algorithm>
#include <utility>

namespace NSCam::v3::Utils {

UsersManager::UsersManager(StreamId_T streamId, char const* streamName)
    : mStreamId(streamId), mStreamName(streamName ? streamName : "") {
}

size_t UsersManager::enqueUser(std::string userName) {
    zebcam::LockGuard const lock(mLock);
    // The id is the place: users are never taken out, so that an id stays unique.
    mUsers.push_back({std::move(userName)});
    return mUsers.size() - 1;
}

bool UsersManager::markReleased(size_t userId) {
    zebcam::LockGuard const lock(mLock);
    if (userId >= mUsers.size() || mUsers[userId].released) {
        return false;
    }
    mUsers[userId].released = true;
    return true;
}

size_t UsersManager::pendingUsers() const {
    zebcam::LockGuard const lock(mLock);
    return static_cast<size_t>(
        std::count_if(mUsers.begin(), mUsers.end(), [](User const& u) { return !u.released; }));
}

}  // namespace NSCam::v3::Utils
