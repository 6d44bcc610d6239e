#pragma once

/// Version of the daemon, for the banner and for clients.
#define TAVRIK_VERSION "2.2.4"
