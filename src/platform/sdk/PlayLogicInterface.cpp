#include "platform/sdk/PlayLogicInterface.h"

#include "platform/sdk/CMWorker.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/VornPlayLogicRequests.h"

namespace
{
CMVoidReply invoke(const CMPath& path, const VornHash& request = {})
{
    CMVoidReply reply;
    CMRoot()->invoke(path, request, reply);
    return reply;
}

/// The player that stands at the player's nodes, whoever owns them.
class PlayerInstance : public PlayLogicInterface
{
public:
    CMPath path() const override
    {
        return CMPath(
            QString::fromLatin1(kPlayerInstancePath.data(), static_cast<int>(kPlayerInstancePath.size())));
    }
    CMPath dataPath() const override { return VornPlayLogicDataPath(); }
    VornPlayLogicData data() const override { return VornHash(CMRoot()->getValue(dataPath()).toHash()); }

    CMVoidReply play(const VornRoles& roles, bool append) override
    {
        return invoke(VornPlayLogicPlayPath(), VornPlayLogicPlayRequest().setRoles(roles).setAppend(append));
    }
    CMVoidReply pause() override { return invoke(VornPlayLogicPausePath()); }
    CMVoidReply stop(VornPlayLogicStopReason::Enum reason) override
    {
        return invoke(VornPlayLogicStopPath(), VornPlayLogicStopRequest().setReason(reason));
    }
    CMVoidReply next() override { return invoke(VornPlayLogicNextPath()); }
    CMVoidReply previous(bool restart) override
    {
        return invoke(VornPlayLogicPreviousPath(), VornPlayLogicPreviousRequest().setRestart(restart));
    }
    CMVoidReply like() override { return invoke(VornPlayLogicLikePath()); }
    CMVoidReply dislike() override { return invoke(VornPlayLogicDislikePath()); }
};
} // namespace

PlayLogicInterface* PlayLogicInterface::playerInstance()
{
    static PlayerInstance player;
    return &player;
}
