#pragma once

#include <QtCore/qglobal.h>

#if defined(BASIX_LIBRARY)
#  define BASIX_EXPORT Q_DECL_EXPORT
#else
#  define BASIX_EXPORT Q_DECL_IMPORT
#endif
