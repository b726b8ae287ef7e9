local request = lighty.r

request.req_env["USER_AGENT"] = request.req_header["User-Agent"]
request.req_env["REFFERER"] = request.req_header["Referer"]
request.req_env["CONTEXT_PATH"] = ""
