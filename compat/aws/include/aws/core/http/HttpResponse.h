#pragma once

namespace Aws::Http {

// Any number that a server answers; those that are asked for by name.
enum class HttpResponseCode { REQUEST_NOT_MADE = -1, OK = 200, FORBIDDEN = 403, NOT_FOUND = 404 };

}  // namespace Aws::Http
