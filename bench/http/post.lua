-- wrk script: every request POSTs one shop reservation as JSON.
wrk.method = "POST"
wrk.headers["Content-Type"] = "application/json"
wrk.body = '{"sku":"LAMP-01","quantity":2,"type":"shop/ReserveItem"}'
