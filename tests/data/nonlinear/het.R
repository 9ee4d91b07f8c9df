# Reference values of het_test.cpp and of the scripts het_*.kor: each likelihood written down anew
# and maximised by optim, MULT by gls of nlme as well. Data: het.dat (x, z, y of GARCH errors, y of
# errors with variance exp(-1+0.8z)); made by R with set.seed(11), 200 rows.
d <- as.matrix(read.table("het.dat")); x <- d[,1]; z <- d[,2]; yg <- d[,3]; ym <- d[,4]
n <- nrow(d); X <- cbind(x, 1); Z <- cbind(z, 1)
negL <- function(e, h) if (any(!(h > 0))) 1e10 else 0.5 * sum(log(2 * pi) + log(h) + e^2 / h)
s2 <- function(y) mean(lm.fit(X, y)$residuals^2)
garch <- function(v, na, nf, power = NA, z = NULL) {  # b, (g), a0, (c), a, f
  y <- yg; m <- 2; g <- 0
  if (!is.na(power)) { m <- 3; g <- v[3] }
  a0 <- v[m + 1]; k <- m + 1; c <- 0
  if (!is.null(z)) { c <- v[k + 1]; k <- k + 1 } else z <- rep(0, n)
  a <- v[k + seq_len(na)]; f <- v[k + na + seq_len(nf)]
  pre <- s2(y); e <- h <- numeric(n); r <- y - X %*% v[1:2]
  for (t in 1:n) {
    h[t] <- a0 + c * z[t]
    for (i in seq_len(na)) h[t] <- h[t] + a[i] * (if (t > i) e[t-i]^2 else pre)
    for (j in seq_len(nf)) h[t] <- h[t] + f[j] * (if (t > j) h[t-j] else pre)
    if (!(h[t] > 0)) return(1e10)
    e[t] <- r[t] - g * (if (is.na(power)) 0 else if (power == 0) log(h[t]) else h[t]^power)
  }
  negL(e, h)
}
form <- function(v, kind) {
  y <- ym; m <- c(X %*% v[1:2]); w <- v[-(1:2)]
  h <- switch(kind, MULT = exp(Z %*% w), VARLIN = Z %*% w, STDLIN = (Z %*% w)^2,
              DEPVAR = w^2 * m^2)
  negL(y - m, c(h))
}
best <- function(f, start, ...) {
  start <- optim(start, f, ..., control = list(maxit = 5000, reltol = 1e-12))$par
  for (i in 1:4) {
    r <- optim(start, f, ..., method = "BFGS",
               control = list(reltol = 1e-16, maxit = 500, ndeps = rep(1e-5, length(start))))
    start <- r$par
  }
  H <- optimHess(start, f, ..., control = list(ndeps = rep(1e-4, length(start))))
  list(L = -r$value, b = start, se = sqrt(diag(solve(H))))
}
show <- function(name, r) cat(sprintf("%-10s L=%.6f b= %s se= %s\n", name, r$L,
  paste(sprintf("%.7g", r$b), collapse = " "), paste(sprintf("%.5g", r$se), collapse = " ")))
show("GARCH11", best(garch, c(.5, 1, .2, .2, .5), na = 1, nf = 1))
show("ARCH2", best(garch, c(.5, 1, .5, .2, .1), na = 2, nf = 0))
show("GARCH12", best(garch, c(.5, 1, .2, .2, .3, .2), na = 1, nf = 2))
show("ARCHM1", best(garch, c(.5, 1, .1, .2, .2, .5), na = 1, nf = 1, power = 1))
show("ARCHMLOG", best(garch, c(.5, 1, .1, .2, .2, .5), na = 1, nf = 1, power = 0))
show("ARCHM.5", best(garch, c(.5, 1, .1, .2, .2, .5), na = 1, nf = 1, power = 0.5))
show("ARCHZ", best(garch, c(.5, 1, .5, .1, .2), na = 1, nf = 0, z = z))
show("MULT", best(form, c(1.5, 2, .8, -1), kind = "MULT"))
show("VARLIN", best(form, c(1.5, 2, .5, .3), kind = "VARLIN"))
show("STDLIN", best(form, c(1.5, 2, .5, .3), kind = "STDLIN"))
show("DEPVAR", best(form, c(1.5, 2, .15), kind = "DEPVAR"))
library(nlme)
g <- gls(ym ~ x, weights = varExp(form = ~z), method = "ML")
v <- coef(g$modelStruct$varStruct)
cat(sprintf("gls        L=%.6f b= %.7g %.7g  a= %.7g %.7g\n", as.numeric(logLik(g)), coef(g)[2],
  coef(g)[1], 2 * v, 2 * log(g$sigma)))
