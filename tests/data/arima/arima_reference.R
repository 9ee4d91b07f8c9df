# Reference values of the ARIMA tests, by R's own routines and by formulas written out here.
# Rscript arima_reference.R > arima_reference.txt      (made with R 4.2.2)
# Each line: key, number of values, values.
put <- function(key, x) cat(key, length(x), format(x, digits = 15, trim = TRUE), "\n")
airline <- as.numeric(AirPassengers); nile <- as.numeric(Nile)
www <- as.numeric(WWWusage); lynx10 <- as.numeric(lynx); huron <- as.numeric(LakeHuron)

# ---- correlations: acf, pacf, Box.test
series <- list(airline = diff(diff(log(airline)), 12), nile = nile, www = diff(www), lynx = log(lynx10))
for (s in names(series)) {
  w <- series[[s]]
  put(paste0("acf_", s), acf(w, 24, plot = FALSE)$acf[-1])
  put(paste0("pacf_", s), pacf(w, 12, plot = FALSE)$acf)
  put(paste0("q_", s), sapply(1:24, function(k) Box.test(w, k, "Ljung-Box")$statistic))
  put(paste0("p_", s), sapply(1:24, function(k) Box.test(w, k, "Ljung-Box")$p.value))
}

# ---- residuals by back-forecasting (Box and Jenkins 1976), with 104 places before the sample
product <- function(a, b, s) {         # lags 1.. of 1 - (1 - sum a B^i)(1 - sum b B^(s j))
  p <- c(1, -a); q <- c(1, rep(0, s * length(b)))
  for (j in seq_along(b)) q[1 + s * j] <- -b[j]
  r <- rep(0, length(p) + length(q) - 1)
  for (i in seq_along(p)) for (j in seq_along(q)) r[i + j - 1] <- r[i + j - 1] + p[i] * q[j]
  -r[-1]
}
residuals_bj <- function(w, ar, ma, const) {
  n <- length(w); N <- 104 + n; P <- length(ar); Q <- length(ma)
  W <- c(rep(0, 104), w, rep(0, 104)); E <- rep(0, N + 104)
  lead <- function(x, t, co) if (length(co)) sum(co * x[t + seq_along(co)]) else 0
  lag <- function(x, t, co) if (length(co)) sum(co * x[t - seq_along(co)]) else 0
  if (Q > 0) for (t in (N - P):105) E[t] <- W[t] - const - lead(W, t, ar) + lead(E, t, ma)
  for (t in 104:1) W[t] <- const + lead(W, t, ar) - lead(E, t, ma)
  a <- rep(0, N)
  for (t in (1 + max(P, Q)):N) a[t] <- W[t] - const - lag(W, t, ar) + lag(a, t, ma)
  a
}
split_b <- function(b, o) {            # o: NARP NMA NSARP NSMA span constant
  k <- cumsum(o[1:4]); g <- function(i) if (o[i]) b[(k[i] - o[i] + 1):k[i]] else numeric(0)
  list(ar = product(g(1), g(3), o[5]), ma = product(g(2), g(4), o[5]),
       f = (1 - sum(g(1))) * (1 - sum(g(3))), const = if (o[6]) b[k[4] + 1] else 0)
}
res <- function(w, b, o) { m <- split_b(b, o); residuals_bj(w, m$ar, m$ma, m$const) }
models <- list(
  airline = list(series$airline, c(0, 1, 0, 1, 12, 0), c(0.39, 0.61)),
  airlinec = list(series$airline, c(0, 1, 0, 1, 12, 1), c(0.39, 0.61, -0.0002)),
  nile = list(nile, c(1, 1, 0, 0, 0, 1), c(0.8, 0.5, 180)),
  huron = list(huron, c(2, 0, 0, 0, 0, 1), c(1.05, -0.27, 127)),
  lynx = list(series$lynx, c(2, 0, 0, 0, 0, 1), c(1.38, -0.75, 2.5)),
  www = list(series$www, c(1, 1, 0, 0, 0, 0), c(0.65, -0.53)),
  season = list(log(airline), c(1, 1, 1, 1, 12, 1), c(0.9, 0.3, 0.95, 0.5, 0.03)))
for (s in names(models)) {
  m <- models[[s]]
  put(paste0("s_given_", s), sum(res(m[[1]], m[[3]], m[[2]])^2))
  if (s == "season") next
  # the minimum: the constant as mean times factor, parameters scaled
  S <- function(b) {
    if (m[[2]][6]) b[length(b)] <- b[length(b)] * split_b(b, m[[2]])$f
    sum(res(m[[1]], b, m[[2]])^2)
  }
  b <- m[[3]]; k <- length(b)
  if (m[[2]][6]) b[k] <- mean(m[[1]])
  o <- optim(b, S, method = "BFGS", control = list(reltol = 1e-15, maxit = 500, parscale = abs(b) + 1e-8))
  o <- optim(o$par, S, method = "Nelder-Mead", control = list(reltol = 1e-15, maxit = 5000, parscale = abs(o$par) + 1e-8))
  b <- o$par
  if (m[[2]][6]) b[k] <- b[k] * split_b(b, m[[2]])$f
  n <- length(m[[1]])
  J <- sapply(1:k, function(i) { h <- 1e-5 * max(abs(b[i]), 1e-3); e <- replace(rep(0, k), i, h)
    (res(m[[1]], b - e, m[[2]]) - res(m[[1]], b + e, m[[2]])) / (2 * h) })
  V <- o$value / (n - k) * solve(crossprod(J))
  put(paste0("b_", s), b); put(paste0("s_", s), o$value); put(paste0("se_", s), sqrt(diag(V)))
}

# ---- forecasts of given models on the undifferenced series
forecast <- function(y, b, o, d, D, origin, steps) {
  m <- split_b(b, o); p <- c(1, -m$ar)
  mul <- function(p, q) { r <- rep(0, length(p) + length(q) - 1)
    for (i in seq_along(p)) r[i + seq_along(q) - 1] <- r[i + seq_along(q) - 1] + p[i] * q
    r }
  for (i in seq_len(d)) p <- mul(p, c(1, -1))
  for (i in seq_len(D)) p <- mul(p, c(1, rep(0, o[5] - 1), -1))
  A <- -p[-1]; P <- length(A); a <- rep(0, origin)
  past <- function(x, t, co) sum(vapply(seq_along(co), function(j) if (t - j >= 1) co[j] * x[t - j] else 0, 0))
  for (t in (P + 1):origin) a[t] <- y[t] - m$const - past(y, t, A) + past(a, t, m$ma)
  z <- y[1:origin]; e <- c(a, rep(0, steps))
  for (t in origin + 1:steps) z[t] <- m$const + past(z, t, A) - past(e, t, m$ma)
  psi <- ARMAtoMA(A, -m$ma, steps)
  s2 <- sum(a[(P + 1):origin]^2) / (origin - P - length(b))
  list(f = z[origin + 1:steps], psi = psi, se = sqrt(s2 * cumsum(c(1, psi[-steps]^2))))
}
f <- forecast(log(airline), c(0.4, 0.6), c(0, 1, 0, 1, 12, 0), 1, 1, 130, 20)
put("f_airline", f$f); put("psi_airline", f$psi); put("fse_airline", f$se)
f <- forecast(huron, c(1.05, -0.27, 127), c(2, 0, 0, 0, 0, 1), 0, 0, 90, 12)
put("f_huron", f$f); put("psi_huron", f$psi); put("fse_huron", f$se)
f <- forecast(www, c(0.65, -0.53, 0.4), c(1, 1, 0, 0, 0, 1), 1, 0, 100, 12)
put("f_www", f$f); put("psi_www", f$psi); put("fse_www", f$se)
rho <- ARMAacf(c(1.05, -0.27), lag.max = 199)[-1]
put("rho_huron", rho)
put("times_huron", 2 * pi / acos(c(rho[1], (2 * rho[1] - rho[2] - 1) / (2 * (1 - rho[1])))))

# ---- unit roots: lm, anova, PP.test
df <- function(y, p, type) {
  T <- length(y); dy <- diff(y); t <- (p + 2):T
  d <- dy[t - 1]; X <- cbind(level = y[t - 1])
  L <- if (p) sapply(1:p, function(i) dy[t - 1 - i]) else NULL
  one <- rep(1, length(t))
  full <- cbind(X, L, if (type >= 1) one, if (type == 2) t)
  m <- lm(d ~ full - 1); cf <- summary(m)$coefficients
  lags <- if (p) sum(coef(m)[2:(p + 1)]) else 0
  out <- c(cf[1, 3], length(t) * cf[1, 1] / (1 - lags))
  sse <- function(M) if (is.null(M)) sum(d^2) else sum(resid(lm(d ~ M - 1))^2)
  F <- function(M, q) (sse(M) - sse(full)) / (q * sse(full) / (length(t) - ncol(full)))
  if (type == 1) out <- c(out, F(L, 2))
  if (type == 2) out <- c(out, F(L, 3), F(cbind(L, one), 2))
  out
}
pp <- function(y, L, type) {
  n <- length(y) - 1; x <- y[1:n]; z <- y[-1]; one <- rep(1, n); t <- 1:n
  X <- cbind(x, if (type >= 1) one, if (type == 2) t)
  m <- lm(z ~ X - 1); cf <- summary(m)$coefficients; e <- resid(m)
  g <- function(j) sum(e[(j + 1):n] * e[1:(n - j)]) / n
  g0 <- g(0); s2 <- sum(e^2) / (n - ncol(X))
  lr <- g0 + if (L) 2 * sum((1 - 1:L / (L + 1)) * sapply(1:L, g)) else 0
  se <- cf[1, 2]; tt <- (cf[1, 1] - 1) / se
  c(sqrt(g0 / lr) * tt - (lr - g0) * n * se / (2 * sqrt(lr * s2)), n * (cf[1, 1] - 1) - (lr - g0) * (n * se)^2 / (2 * s2))
}
for (s in c("nile", "www", "huron")) {
  y <- list(nile = nile, www = www, huron = huron)[[s]]
  put(paste0("df_", s), c(df(y, 3, 0), df(y, 3, 1), df(y, 3, 2)))
  put(paste0("pp_", s), c(pp(y, 4, 0), pp(y, 4, 1), pp(y, 4, 2)))
  # R's own routine, with its window of trunc(4 (n/100)^0.25)
  put(paste0("pptest_", s), c(PP.test(y)$statistic, trunc(4 * ((length(y) - 1) / 100)^0.25)))
}
x <- cumsum(nile - 900); y <- 0.5 * x + 10 * www
put("eg", { e <- resid(lm(y ~ x)); n <- 100; e2 <- resid(lm(y ~ x + seq_len(n)))
  c(df(e, 2, 0), df(e2, 2, 0)) })
put("po", { e <- resid(lm(y ~ x)); e2 <- resid(lm(y ~ x + seq_len(100))); c(pp(e, 3, 0), pp(e2, 3, 0)) })
