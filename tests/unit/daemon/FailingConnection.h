#pragma once

/// Makes the HTTP library fail to create its next connection, as if it were out of memory.
void FailNextConnection();
