#pragma once

/// Version of the daemon and of tavrikctl.
#define TAVRIK_VERSION "2.2.4"
