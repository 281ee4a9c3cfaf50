# SPDX-License-Identifier: Apache-2.0
"""What clients ask of the page of metrics: the seeds of fuzz-http."""


def http_seeds():
    yield "get", b"GET /metrics HTTP/1.1\r\nHost: bmc:9090\r\nAccept: text/plain;q=0.5, */*\r\n\r\n"
    yield "open-metrics", (b"GET /metrics?x=1 HTTP/1.1\r\nHost: bmc\r\n"
                           b"ACCEPT: application/openmetrics-text; version=1.0.0\r\n\r\n")
    yield "head", b"HEAD /metrics HTTP/1.0\n\n"
    yield "proxy", b"GET http://bmc:9090/metrics#there HTTP/1.1\n\n"
    yield "proxy-without-path", b"GET http://bmc HTTP/1.1\n\n"
    yield "post", b"POST /metrics HTTP/1.1\r\nContent-Length: 3\r\n\r\na=b"
    yield "elsewhere", b"GET / HTTP/1.1\r\n\r\n"
    yield "head-elsewhere", b"HEAD / HTTP/1.1\r\n\r\n"
    yield "version", b"GET /metrics HTTP/2.0\r\n\r\n"
    yield "old", b"GET /metrics\r\n\r\n"
    yield "no-field", b"GET /metrics HTTP/1.1\r\nHost\r\n\r\n"
    yield "blank-before-colon", b"GET /metrics HTTP/1.1\r\nHost : a\r\n\r\n"
    yield "folded", b"GET /metrics HTTP/1.1\r\nA: b\r\n c\r\n\r\n"
    yield "control", b"GET /metrics\x1b[2J HTTP/1.1\r\n\r\n"
    yield "nul", b"GET /metrics HTTP/1.1\r\nA: \0\r\n\r\n"
    yield "empty", b"\r\n\r\n"
