// The reference for lexsim's speed: a bare gSOAP echo service with one operation. It uses
// the service namespace and operation name of lexsim's TestEcho, so that the very same
// captured request is valid for both servers.

//gsoap nv schema namespace: http://schemas.lexary.net/nvsoap/2/schema
//gsoap nv schema form: unqualified
//gsoap nv service name: echoref
//gsoap nv service style: document
//gsoap nv service encoding: literal
//gsoap nv service method-action: TestEcho ""

typedef long long xsd__long;

class xsd__base64Binary {
 public:
  unsigned char* __ptr;
  int __size;
};

struct nv__TestEchoResponse {
  std::string* str;
  xsd__long* num;
  xsd__base64Binary* bin;
};

int nv__TestEcho(std::string* str, xsd__long* num, xsd__base64Binary* bin,
                 struct nv__TestEchoResponse& response);
