-- Load for wrk: `get` asks for the URL again and again; `put PREFIX SIZE COUNT USER:SESSION...` stores a new
-- file with each request, the users taking turns, and ends after COUNT of them when it is not 0; `read` reads
-- the COUNT files that such a run has stored.
local number, answered = 0, 0

local function requests_of_users(arguments)
   local action, prefix, size, count = arguments[1], arguments[2], tonumber(arguments[3]), tonumber(arguments[4])
   local users, sent = {}, {}
   for i = 5, #arguments do
      local user, session = arguments[i]:match("^(.-):(.*)$")
      users[#users + 1] = user
      sent[#sent + 1] = { ["x-qz-tarn-session-id"] = session, ["Content-Type"] = "application/octet-stream" }
   end
   local body = action == "put" and string.rep("x", size) or nil
   local query = "?clientString=bench&clientType=desktop"
   if action == "put" then query = query .. "&createMode=CREATE&createNewVersion=false" end

   return function()
      number = number + 1
      if action == "read" and number > count then number = 2 end -- wrk throws the first request away
      local user = number % #users + 1
      local path = "/service/v1/files" .. prefix .. number .. query .. "&bucket=" .. users[user]
      return wrk.format(action == "put" and "PUT" or "GET", path, sent[user], body)
   end
end

local function report(requests, seconds, refused, broken)
   print(string.format('{"requests": %d, "seconds": %f, "refused": %d, "broken": %d}', requests, seconds, refused,
      broken))
end

-- A thread that stops leaves wrk asleep until its time is over; ending the process does not.
local function end_after(count)
   local started, refused = os.time(), 0
   response = function(status)
      answered = answered + 1
      if status > 399 then refused = refused + 1 end
      if answered < count then return end
      report(answered, math.max(os.time() - started, 1), refused, 0)
      os.exit(0)
   end
end

function init(arguments)
   if arguments[1] == "get" then
      local whole = wrk.format("GET")
      request = function() return whole end
      return
   end
   request = requests_of_users(arguments)
   local count = tonumber(arguments[4])
   if arguments[1] == "put" and count > 0 then end_after(count) end
end

function done(summary)
   local broken = summary.errors.connect + summary.errors.read + summary.errors.write + summary.errors.timeout
   report(summary.requests, summary.duration / 1e6, summary.errors.status, broken)
end
