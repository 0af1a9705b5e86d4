local s = ("ab"):rep(100, ",") .. ("\xC3\xA9"):rep(50) .. ("x"):rep(0) .. (""):rep(5)
n = utf8.len(s, 2, -3) c = { utf8.codepoint(s, 1, 9) } o = utf8.offset(s, 5, 2)
for p, cp in utf8.codes("h\xC3\xA9llo") do last = cp end
t = { 5, 3, 9, 1 } table.sort(t) table.sort(t, function(a, b) return a > b end)
table.insert(t, 1, 0) table.insert(t, 7) x = table.remove(t, 2) table.move(t, 1, 3, 2, {})
j = table.concat(t, "-", 1, #t) .. select(2, pcall(table.concat, { {} }))
f = load(("x = 1 "):rep(12000)) v = f and f()
r = ({ pcall(include, "missing.lua") })[2] .. select(2, pcall(include, "/dev/zero"))
a, b = s:find("(%a+)é"), s:gsub("b", string.upper)
