# Makes auto_reference.txt (and lake.dat): what AUTO estimates, computed by R.
#   Rscript auto_reference.R      in this folder; the file in the repository is from R 4.2.2
# Maximum likelihood and conditional least squares come from arima(); the iterated estimates are fixed
# points made here (gretl 2022c, ar1 with --pwe and without, gives the same RHO: textile -0.195378 and
# -0.155538). Given the errors' coefficients, b, its covariance, the sum of squares and the likelihood
# come from the covariance matrix of the errors written out in full. Lines:
#   data|commands before|list / options|tolerance of the errors' coefficients|those|b|se|SSE|L  (";" parts commands)
options(digits = 15)
tex <- read.table("../textile.dat"); T <- list(y = tex[[2]], X = cbind(tex[[3]], tex[[4]], 1))
lake <- as.numeric(LakeHuron); yr <- seq_along(lake)
write.table(cbind(lake, yr, c(NA, lake[-98])), "lake.dat", row.names = FALSE, col.names = FALSE,
            na = "0")
L <- list(y = lake, X = cbind(yr, 1))
out <- file("auto_reference.txt", "w")
num <- function(v) paste(formatC(v, digits = 12, width = 1, format = "g"), collapse = ",")
# Autocovariances of the rows `at` of an AR process with innovations of variance 1.
covariance <- function(r, at) {
  p <- length(r); m <- 4000; psi <- ARMAtoMA(r, 0, m); psi <- c(1, psi)
  g <- sapply(0:(max(at) - 1), function(k) sum(psi[1:(m + 1 - k)] * psi[(1 + k):(m + 1)]))
  matrix(g[abs(outer(at, at, "-")) + 1], length(at))
}
gls <- function(d, V, DN = FALSE, f = 1) {
  R <- chol(V); Xs <- backsolve(R, d$X, transpose = TRUE); ys <- backsolve(R, d$y, transpose = TRUE)
  C <- solve(crossprod(Xs)); b <- drop(C %*% crossprod(Xs, ys)); S <- sum((ys - Xs %*% b)^2)
  n <- length(ys); K <- ncol(Xs)
  list(b = b, se = sqrt(diag(C) * S / (if (DN) n else n - K)), SSE = S,
       L = -n / 2 * log(2 * pi * S / n) - n / 2 - sum(log(diag(R))), e = drop(d$y - d$X %*% b))
}
rows <- function(d, at) list(y = d$y[at], X = d$X[at, , drop = FALSE])
write <- function(data, before, what, tol, rho, f)
  cat(paste(data, before, what, tol, num(rho), num(f$b), num(f$se), num(f$SSE), num(f$L), sep = "|"),
      "\n", sep = "", file = out)
ar1 <- function(y, X, order, ...) arima(y, order = order, xreg = X, include.mean = FALSE,
  optim.control = list(reltol = 1e-15, maxit = 5000), ...)
tl <- "CONSUME INCOME PRICE /"; ll <- "LEVEL YEAR /"
ratio <- function(e, ok) sum((e[-1] * e[-length(e)])[ok]) / sum((e[-length(e)]^2)[ok])
fixed <- function(d, at = seq_along(d$y)) {
  r <- 0; ok <- diff(at) == 1
  for (i in 1:1500) { f <- gls(rows(d, at), covariance(r, at)); r <- ratio(f$e, ok) }
  list(r = r, f = gls(rows(d, at), covariance(r, at)))
}
# Least squares without the first row.
quasi <- function(d, r) {
  n <- length(d$y); K <- ncol(d$X)
  m <- lm.fit(d$X[-1, , drop = FALSE] - r * d$X[-n, , drop = FALSE], d$y[-1] - r * d$y[-n])
  C <- chol2inv(m$qr$qr[1:K, 1:K, drop = FALSE]); S <- sum(m$residuals^2)
  list(b = m$coefficients, se = sqrt(diag(C) * S / (n - 1 - K)), SSE = S,
       L = -(n - 1) / 2 * (log(2 * pi * S / (n - 1)) + 1), e = drop(d$y - d$X %*% m$coefficients))
}
a <- fixed(T); write("T", "", paste(tl, "CONV=1E-12"), 1e-9, a$r, a$f)
write("T", "", paste(tl, "CONV=1E-12 DN"), 1e-9, a$r, gls(T, covariance(a$r, 1:17), TRUE))
a <- fixed(L); write("L", "", paste(ll, "CONV=1E-12"), 1e-9, a$r, a$f)
r <- 0; for (i in 1:500) { f <- quasi(T, r); r <- ratio(f$e, TRUE) }
write("T", "", paste(tl, "CONV=1E-12 DROP"), 1e-9, r, f)
for (o in 1:3) for (data in c("T", "L")[if (o == 3) 2 else 1:2]) {
  d <- get(data); m <- ar1(d$y, d$X, c(o, 0, 0), method = "ML"); r <- coef(m)[1:o]
  stopifnot(abs(m$loglik - gls(d, covariance(r, seq_along(d$y)))$L) < 1e-7)
  write(data, "", paste(if (data == "T") tl else ll, "ML CONV=1E-11", if (o > 1) paste0("ORDER=", o)),
        5e-6, r, gls(d, covariance(r, seq_along(d$y))))
}
# Rows 20 to 22 and 51 missing, as skipped observations and as a gap in data without them.
at <- setdiff(1:98, c(20:22, 51)); y <- lake; y[-at] <- NA
m <- ar1(y, L$X, c(1, 0, 0), method = "ML"); r <- coef(m)[1]
stopifnot(abs(m$loglik - gls(rows(L, at), covariance(r, at))$L) < 1e-7)
skip <- "SKIPIF(YEAR.GE.20.AND.YEAR.LE.22);SKIPIF(YEAR.EQ.51)"
write("L", skip, paste(ll, "MISS ML CONV=1E-11"), 5e-6, r, gls(rows(L, at), covariance(r, at)))
a <- fixed(L, at); write("L", skip, paste(ll, "MISS CONV=1E-12"), 1e-9, a$r, a$f)
at <- setdiff(1:98, 20:22); y <- lake; y[-at] <- NA
r <- coef(ar1(y, L$X, c(1, 0, 0), method = "ML"))[1]
write("L", "SKIPIF(YEAR.GE.20.AND.YEAR.LE.22)", paste(ll, "GAP=19 NMISS=3 ML CONV=1E-11"), 5e-6, r,
      gls(rows(L, at), covariance(r, at)))
# Grids.
grid <- seq(-99, 99) / 100
f <- lapply(grid, function(r) gls(T, covariance(r, 1:17)))
k <- which.min(sapply(f, `[[`, "SSE")); write("T", "", paste(tl, "GS"), 1e-12, grid[k], f[[k]])
k <- which.max(sapply(f, `[[`, "L")); write("T", "", paste(tl, "GS ML"), 1e-12, grid[k], f[[k]])
# Higher orders by least squares: all rows, then without the first two (conditional sum of squares).
S <- function(r) { V <- try(covariance(r, 1:98), TRUE); if (!all(Mod(polyroot(c(1, -r))) > 1.001)) 1e9 else
  gls(L, V)$SSE }
r <- optim(c(1, -.3), S, control = list(reltol = 1e-15, maxit = 4000))$par
r <- optim(r, S, control = list(reltol = 1e-15, maxit = 4000))$par
write("L", "", paste(ll, "ORDER=2 CONV=1E-11"), 2e-5, r, gls(L, covariance(r, 1:98)))
# Filters: u(t) = e(t) - sum r e(t-j) - sum m u(t-j), from row `from` on, errors before it 0 or `u0`.
filtered <- function(z, r, m, from, u0 = 0 * m) {
  u <- c(rev(u0), rep(0, length(z))); q <- length(m); p <- length(r)
  for (t in from:length(z)) {
    v <- z[t]; for (j in seq_len(p)) if (t > j) v <- v - r[j] * z[t - j]
    for (j in seq_len(q)) v <- v - m[j] * u[q + t - j]
    u[q + t] <- v
  }
  u[(q + from):(q + length(z))]
}
conditional <- function(d, r, m, from, pre = FALSE) {
  X <- apply(d$X, 2, filtered, r, m, from); y <- filtered(d$y, r, m, from); n <- length(y); K <- ncol(X)
  if (pre) X <- cbind(X, -filtered(0 * d$y, r, m, from, 1))
  f <- lm.fit(X, y); C <- chol2inv(f$qr$qr[1:ncol(X), 1:ncol(X)])[1:K, 1:K]; S <- sum(f$residuals^2)
  list(b = f$coefficients[1:K], se = sqrt(diag(C) * S / (n - K)), SSE = S,
       L = -n / 2 * (log(2 * pi * S / n) + 1))
}
css <- function(p, q, options, tol = 5e-6) {
  m <- ar1(L$y, L$X, c(p, 0, q), method = "CSS"); co <- coef(m)[1:(p + q)]
  write("L", "", paste(ll, options, "CONV=1E-11"), tol, co,
        conditional(L, co[seq_len(p)], co[p + seq_len(q)], p + 1))
}
css(2, 0, "ORDER=2 DROP"); css(0, 1, "NUMARMA=1"); css(0, 2, "NUMARMA=2")
css(1, 1, "ORDER=1 NUMARMA=1 DROP", 5e-5)
m <- optimize(function(m) conditional(L, c(), m, 1, TRUE)$SSE, c(0, .95), tol = 1e-12)$minimum
write("L", "", paste(ll, "NUMARMA=1 PREPER CONV=1E-11"), 1e-6, m, conditional(L, c(), m, 1, TRUE))
# Restricted: one coefficient is 1, so that its regressor goes to the left.
D <- list(y = T$y - T$X[, 1], X = T$X[, 2:3]); a <- fixed(D); f <- a$f
f$b <- c(1, f$b); f$se <- c(0, f$se)
write("T", "", paste(tl, "CONV=1E-12 RESTRICT;RESTRICT INCOME=1;END"), 1e-9, a$r, f)
# First differences.
N <- list(y = T$y, X = T$X[, 1:2]); write("T", "", paste(tl, "NOCONSTANT DROP RHO=1"), 0, 1, quasi(N, 1))
# A lagged dependent variable: the covariance of b beside RHO (Dhrymes 1971), by inversion in full.
Y <- list(y = lake[-1], X = cbind(lake[-98], yr[-1], 1)); a <- fixed(Y); f <- a$f; n <- 97
X <- rbind(sqrt(1 - a$r^2) * Y$X[1, ], Y$X[-1, ] - a$r * Y$X[-n, ]); e <- c(0, f$e[-n])
C <- solve(crossprod(cbind(X, e)) / n) / n * f$SSE / (n - 3); f$se <- sqrt(diag(C)[1:3])
write("L", "SAMPLE 2 98", paste("LEVEL LAST YEAR /", "DLAG CONV=1E-10 ITER=900"), 1e-8, a$r, f)
cat("lag,rho covariance", num(C[1, 4]), "difference", num(C[1, 1] - solve(crossprod(X))[1, 1] * f$SSE / (n - 3)), "\n")
close(out)
