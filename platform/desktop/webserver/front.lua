-- Judges requests before lighttpd asks for the login, and notes how logins went where answers begin. It is one script
-- for both, since what it remembers from request to request lies among its interpreter's globals.

local request = lighty.r
local attr = request.req_attr
local header = request.req_header

-- What is asked for without a change of anything: by everybody who may log in, or by operators alone, since it tells
-- passwords or the like. An action that is not here is taken for one that changes something.
local kEverybodysReads, kOperatorsReads, kLeadersActions = {}, {}, {}
for _, action in ipairs({
  "get_status_string", "get_is_portrait", "get_status_code", "get_execution_time", "get_total_crowd", "get_crowd_1",
  "get_crowd_2", "get_crowd_3", "get_occupancy_count", "get_total_occupancy", "get_passages", "get_follower_ages",
  "get_about", "get_metrics",
  "get_occupancy_csv", "get_report_csv_str", "get_occupancy_html", "get_data_panel_info", "get_analysis_resolution",
  "get_ledger", "get_counts", "occupancy_before", "stays", "heat", "why", "ledger_answer",
}) do kEverybodysReads[action] = true end
for _, action in ipairs({
  "get_all_parameters", "get_logfile_as_serialized_text", "get_logfile_as_plain_text", "get_logfile_as_csv_text",
  "get_newest_log", "test_follower",
}) do kOperatorsReads[action] = true end

-- What a leader asks of its followers, which it can only do without TLS.
for _, action in ipairs({
  "get_status_code", "get_occupancy_count", "get_total_crowd", "get_crowd_1", "get_crowd_2", "get_crowd_3",
  "reset_occupancy", "follower_flush", "get_about",
}) do kLeadersActions[action] = true end

-- A path that the server refuses after its own question for the login, so that nobody else learns who is an operator.
local kForOperators = "/local/ostrel_senvo/operators.socket"

local kHasTls = @TLS@
local kAccounts = "@ACCOUNTS@"

-- The file of the token that programs say which measure many machines and know no other login; "" for none.
local kMetricsToken = "@TOKEN@"
-- Where the server asks for no login.
local kMetrics = "@METRICS@"
local kService = "/local/ostrel_senvo/webservices.cgi"

-- What is remembered of logins: how many of an address failed, how many it has tried in this second, and which have been
-- right, each with the server's own random number, so that nobody waits for somebody else behind his address.
_G.logins = _G.logins or {failures = {}, tries = {}, right = {}}
local logins = _G.logins
local kFreeFailures = 5
local kMostTries = 32
local kForgetFailures = 60
local kForgetRight = 3600
local kMostKept = 10000

-- What a table holds under a key, anew when that is older than so many seconds.
local function entryOf(entries, key, now, keep)
  local entry = entries[key]
  if entry and math.abs(now - entry.last) <= keep then
    return entry
  end
  entries.size = (entries.size or 0) + 1
  if entries.size > kMostKept then
    for other, old in pairs(entries) do
      if other ~= "size" and math.abs(now - old.last) > keep then
        entries[other] = nil
      end
    end
    entries.size = 0
  end
  entries[key] = {count = 0, last = now}
  return entries[key]
end

local function refuse(status, reason)
  request.resp_header["Content-Type"] = "text/plain; charset=utf-8"
  request.resp_body.set({reason .. "\n"})
  return status
end

-- As the application decodes a part of a query; there a text ends where its first zero stands.
local function decoded(text)
  text = text:gsub("%+", " "):gsub("%%(%x%x)", function(digits) return string.char(tonumber(digits, 16)) end)
  return text:match("^[^%z]*")
end

-- The values of every pair whose key is "action".
local function actionsOf(uri)
  local actions = {}
  local query = uri:match("^[^?#]*%?([^#]*)") or ""
  for pair in query:gmatch("[^&]+") do
    local key, value = pair:match("^([^=]*)=?(.*)$")
    if decoded(key) == "action" then
      actions[#actions + 1] = decoded(value)
    end
  end
  return actions
end

local function allIn(actions, known)
  for _, action in ipairs(actions) do
    if not known(action) then
      return false
    end
  end
  return true
end

-- The user that a login claims to be, "" where that cannot be told for certain: lighttpd must not read another one.
local function claimedUser()
  local login = header["Authorization"] or ""
  local _, mentions = login:lower():gsub("username", "")
  return mentions == 1 and login:match("^Digest .-username=\"([%w._-]+)\"") or ""
end

-- A user whose role is not written down changes nothing, but for the one that every camera has.
local function isOperator(user)
  if user == "operator" then
    return true
  end
  local file = io.open(kAccounts)
  local text = file and "\n" .. file:read("a") or ""
  if file then
    file:close()
  end
  return text:find("\n#role:" .. user .. ":operator\n", 1, true) ~= nil
end

-- Under what a user's login is remembered; nil where that cannot be told for certain. A cnonce is the client's own.
local function loginKey(user)
  local nonce = (header["Authorization"] or ""):match('[ ,]nonce="([^"]*)"')
  return nonce and user ~= "" and attr["request.remote-addr"] .. " " .. user .. " " .. nonce or nil
end

local function hasBeenRight(key)
  local right = key and logins.right[key]
  return right and math.abs(os.time() - right.last) <= kForgetRight
end

-- After some failures an address tries one login a second, through whichever of its connections. Before, too, there is a
-- limit to those of a second that have not been right yet, since the server tells of a failure only some time later.
local function mustWait()
  if not header["Authorization"] or hasBeenRight(loginKey(claimedUser())) then
    return false
  end
  local now = os.time()
  local tries = entryOf(logins.tries, attr["request.remote-addr"], now, 0)
  local failed = logins.failures[attr["request.remote-addr"]]
  local isSlowed = failed and failed.count >= kFreeFailures and math.abs(now - failed.last) <= kForgetFailures
  return tries.count >= (isSlowed and 1 or kMostTries)
end

-- Only what reaches the server's own question for the login is a try: a refusal before tells nothing of a password.
local function letThrough()
  if header["Authorization"] and not hasBeenRight(loginKey(claimedUser())) then
    local tries = entryOf(logins.tries, attr["request.remote-addr"], os.time(), 0)
    tries.count = tries.count + 1
  end
  return 0
end

local function noteLogin()
  local now = os.time()
  local address = attr["request.remote-addr"]
  local status = request.req_item.http_status
  if status == 401 and header["Authorization"] then
    -- The server's number has grown old: whether the password is right has not been told.
    if (request.resp_header["WWW-Authenticate"] or ""):find("stale=true", 1, true) then
      return
    end
    local failed = entryOf(logins.failures, address, now, kForgetFailures)
    failed.count, failed.last = failed.count + 1, now
  elseif request.req_env["REMOTE_USER"] then
    request.resp_header["X-Senvo-Role"] = isOperator(request.req_env["REMOTE_USER"]) and "operator" or "viewer"
    local key = loginKey(request.req_env["REMOTE_USER"])
    if key and not hasBeenRight(key) then
      entryOf(logins.right, key, now, kForgetRight)
      local tries = entryOf(logins.tries, address, now, 0)
      tries.count = math.max(0, tries.count - 1)
    end
  end
end

local function isBrowser()
  for _, name in ipairs({"Sec-Fetch-Site", "Sec-Fetch-Mode", "Sec-Fetch-Dest", "Sec-Fetch-User", "Origin", "Referer"}) do
    if header[name] then
      return true
    end
  end
  return (header["User-Agent"] or ""):find("Mozilla/", 1, true) ~= nil
end

-- So many requests may be under way from one address. Who sends nothing yet is not under way: silence is ended by the
-- server's own limits of time, and must not shut out others behind the same address.
local kMostAtOnce = 128

local function isCrowded()
  if lighty.server.stats["clients_open"] <= kMostAtOnce then
    return false
  end
  local count = 0
  for other in lighty.server.irequests() do
    local stage = other.req_attr["request.stage"]
    if other.req_attr["request.remote-addr"] == attr["request.remote-addr"]
        and stage ~= "connect" and stage ~= "read" and stage ~= "close" then
      count = count + 1
    end
  end
  return count > kMostAtOnce
end

local function saysToken()
  local file = kMetricsToken ~= "" and io.open(kMetricsToken)
  local token = file and file:read("l")
  if file then
    file:close()
  end
  return token ~= nil and token ~= false and #token >= @LEAST@ and header["Authorization"] == "Bearer " .. token
end

-- A browser that is logged in sends its login along with whatever a foreign page asks for, and over plain HTTP it says
-- neither where the request comes from nor, with a link, whose it is. A header of our page's own needs a leave that
-- foreign pages do not get.
local function judge()
  if isCrowded() then
    return refuse(429, "expected at most " .. kMostAtOnce .. " requests at once from one address")
  end
  local path = attr["uri.path"]
  local isService = path:find("webservices.cgi", 1, true) ~= nil
  local method = attr["request.method"]
  local reading = method == "GET" or method == "HEAD"
  local actions = isService and actionsOf(attr["request.orig-uri"]) or {}
  -- To the letter as the application, which sees it as it came, knows it: it answers nothing else then.
  local isMeasured = method == "GET" and attr["request.orig-uri"]:find("^/metrics%f[?%z]") ~= nil
  local hasToken = isMeasured and saysToken()
  if not hasToken and mustWait() then
    request.resp_header["Retry-After"] = "1"
    return refuse(429, "expected at most one login a second after so many that failed")
  end
  if kHasTls and attr["uri.scheme"] ~= "https" then
    local isLeaders = path == kService and method == "GET" and #actions > 0
        and allIn(actions, function(action) return kLeadersActions[action] end)
    if not isLeaders then
      return refuse(403, "expected HTTPS, or what a leader asks of a follower")
    end
  end
  if isMeasured then
    attr["uri.path"] = hasToken and kMetrics or kService
    return hasToken and 0 or letThrough()
  end
  if reading and not isService and not path:find("/live", 1, true) then
    return letThrough()
  end
  local site = header["Sec-Fetch-Site"]
  if site and site ~= "same-origin" and site ~= "none" then
    return refuse(403, "expected a request of the camera's own page, got one of another site")
  end
  local own = attr["uri.scheme"] .. "://" .. (header["Host"] or "")
  local origin = header["Origin"]
  if origin and origin ~= own then
    return refuse(403, "expected a request of the camera's own page, got one of another origin")
  end
  local referer = header["Referer"]
  if referer and referer ~= own and referer:sub(1, #own + 1) ~= own .. "/" then
    return refuse(403, "expected a request of the camera's own page, got one that another page refers to")
  end
  local isRead = function(action) return kEverybodysReads[action] or kOperatorsReads[action] end
  local changing = not reading or (isService and not allIn(actions, isRead))
  if changing and isBrowser() and header["X-Senvo-Page"] ~= "1" then
    return refuse(403, "expected the header X-Senvo-Page: 1 with what changes something, got none")
  end
  local isEverybodys = function(action) return kEverybodysReads[action] end
  if header["Authorization"] and not (reading and (not isService or #actions > 0) and allIn(actions, isEverybodys))
      and not isOperator(claimedUser()) then
    attr["uri.path"] = kForOperators
  end
  return letThrough()
end

if request.req_item.http_status == 0 then
  return judge()
end
noteLogin()
return 0
