-- The daemon's redirects have a Location header and no status, which the front server sets. Apache
-- would answer with status 200.
function redirect(r)
    if r.status == 200 and r.headers_out["Location"] then
        r.status = 302
    end
    -- No coroutine.yield(): the body passes unfiltered.
end
