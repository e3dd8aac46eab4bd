#pragma once

namespace Aws::Client {

class AWSAuthV4Signer {
 public:
  // Bodies are never signed here, as the transport protects them.
  enum class PayloadSigningPolicy { RequestDependent, Always, Never };
};

}  // namespace Aws::Client
