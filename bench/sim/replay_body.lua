-- wrk script: POSTs the captured TestEcho body (file named by SIM_BENCH_BODY) on every
-- request of a keep-alive connection, with the headers a SOAP client sends.
local f = assert(io.open(os.getenv("SIM_BENCH_BODY"), "rb"))
wrk.method = "POST"
wrk.body = f:read("*a")
f:close()
wrk.headers["Content-Type"] = "text/xml; charset=utf-8"
wrk.headers["SOAPAction"] = '""'
