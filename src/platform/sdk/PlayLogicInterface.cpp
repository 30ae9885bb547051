#include "platform/sdk/PlayLogicInterface.h"

namespace
{
class PlayerInstance : public PlayLogicInterface
{
public:
    CMPath path() const override
    {
        return CMPath(
            QString::fromLatin1(kPlayerInstancePath.data(), static_cast<int>(kPlayerInstancePath.size())));
    }
};
} // namespace

PlayLogicInterface* PlayLogicInterface::playerInstance()
{
    static PlayerInstance player;
    return &player;
}
