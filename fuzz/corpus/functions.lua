local t = {}
for i = 1, 10 do t[#t + 1] = echo(i) end
s = table.concat(t, ","):gsub("%d+", function(d) return "<" .. d .. ">" end)
ok, err = pcall(error, { code = 1 })
f = load("return 1 + 1")
v = f and f()
m = ("key=value"):match("^(.-)=(.*)$")
