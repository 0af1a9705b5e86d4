#pragma once

// Every public header of the update engine library.
#include <vantor/VantorExport.h>
#include <vantor/Keys.h>
#include <vantor/NetworkTransport.h>
#include <vantor/Operation.h>
#include <vantor/Options.h>
#include <vantor/Transport.h>
#include <vantor/VantorTypes.h>
