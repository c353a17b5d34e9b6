-- Every request is of the next person: wrk -s cookies.lua URL -- COOKIE-FILE
local cookies, turn = {}, 0

function init(args)
  for line in io.lines(args[1]) do cookies[#cookies + 1] = line end
end

function request()
  turn = turn % #cookies + 1
  return wrk.format("GET", nil, { ["Cookie"] = "korvane=" .. cookies[turn] })
end
