shared = {} for i = 1, 30 do shared = { shared, shared, k = shared } end
big = setmetatable({}, { __len = function() return 1 << 40 end })
table.insert(big, 1, "x")
