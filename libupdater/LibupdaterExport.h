#pragma once

#include <QtCore/qglobal.h>

#if defined(LIBUPDATER_LIBRARY)
#  define LIBUPDATER_EXPORT Q_DECL_EXPORT
#else
#  define LIBUPDATER_EXPORT Q_DECL_IMPORT
#endif
