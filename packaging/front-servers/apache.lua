-- A redirect of the daemon's says where to, and leaves the status to the front server. Apache would
-- leave it at 200.
function redirect(r)
    if r.status == 200 and r.headers_out["Location"] then
        r.status = 302
    end
    -- Without a coroutine.yield() the answer itself passes by.
end
