#pragma once

/// The HTTP library's next connection fails, as if it had no memory for it.
void FailNextConnection();
