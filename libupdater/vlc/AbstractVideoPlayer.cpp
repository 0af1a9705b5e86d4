#include "AbstractVideoPlayer.h"

namespace tvl::updater {

AbstractVideoPlayer::AbstractVideoPlayer(QObject* parent)
    : QObject(parent)
{
}

} // namespace tvl::updater
