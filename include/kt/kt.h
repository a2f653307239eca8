/// \file kt/kt.h - all of libkt in one include.
#pragma once

#include "kt/KTBuffer.h"
#include "kt/KTEndian.h"
#include "kt/KTException.h"
#include "kt/KTServerSocket.h"
#include "kt/KTSocket.h"
#include "kt/KTString.h"
#include "kt/KTURI.h"
#include "kt/KTTypes.h"
#include "kt/url.h"
