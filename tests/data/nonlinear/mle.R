# Reference values for the MLE command, from log-likelihoods written independently in R.
#
#   Rscript mle.R > mle.txt        (R 4.2.2)
#
# mle.dat: DUR CNT PROP LIN X1 X2 W HEAVY, 120 rows. Each log-likelihood is maximised by optim and Newton
# steps whose derivatives are four-point differences; standard errors come from that Hessian.
# Where R has the model (glm, survreg, gamma glm) the fit is checked against it below. A line is:
#   TYPE loglik  coefficients ...  standard errors ...
d <- read.table("mle.dat"); names(d) <- c("dur", "cnt", "prop", "lin", "x1", "x2", "w", "heavy")
X <- cbind(d$x1, d$x2, 1); K <- 3
hess <- function(f, b) {
  n <- length(b); h <- 1e-3 * pmax(abs(b), 0.1); H <- matrix(0, n, n); g <- numeric(n)
  e <- function(i) replace(numeric(n), i, h[i])
  D <- function(g1, i, b) (8*(g1(b + e(i)) - g1(b - e(i))) - (g1(b + 2*e(i)) - g1(b - 2*e(i)))) / (12*h[i])
  for (i in 1:n) { g[i] <- D(f, i, b); for (j in 1:i) H[i, j] <- H[j, i] <- D(function(c) D(f, j, c), i, b) }
  list(g = g, H = H)
}
fit <- function(name, ll, b) {
  f <- function(b) { v <- suppressWarnings(-ll(b)); if (is.finite(v)) v else 1e10 }
  for (r in 1:3) b <- optim(b, f, method = "Nelder-Mead", control = list(maxit = 20000, reltol = 1e-15))$par
  b <- optim(b, f, method = "BFGS", control = list(maxit = 1000, reltol = 1e-15))$par
  for (r in 1:4) { q <- hess(f, b); b <- b - solve(q$H, q$g) }
  q <- hess(f, b)
  cat(name, format(c(-f(b), b, sqrt(diag(solve(q$H)))), digits = 10, width = 1), "\n")
  invisible(list(b = b, l = -f(b)))
}
z <- function(b) drop(X %*% b[1:3]); z2 <- function(b) drop(X %*% b[4:6])
y <- d$dur; b0 <- c(coef(lm(log(y) ~ X - 1)))
wei <- fit("WEIBULL", function(b) sum(dweibull(y, b[4], exp(z(b)), log = TRUE)), c(b0, 1))
fit("EXP", function(b) sum(dexp(y, exp(-z(b)), log = TRUE)), b0)
fit("GAMMA", function(b) sum(dgamma(y, b[4], scale = exp(z(b)), log = TRUE)), c(b0, 1))
fit("GAMBOT", function(b) sum(dgamma(y, exp(z2(b)), scale = exp(z(b)), log = TRUE)), c(b0, 0, 0, 0))
fit("WEIBOT", function(b) sum(dweibull(y, exp(z2(b)), exp(z(b)), log = TRUE)), c(b0, 0, 0, 0))
dgg <- function(y, s, c, k) log(c) - log(s) - lgamma(k) + (c*k - 1)*log(y/s) - (y/s)^c
fit("GG", function(b) if (min(b[4:5]) <= 0) NaN else sum(dgg(y, exp(z(b)), b[4], b[5])), c(b0, 1, 1))
fit("GGBOTH", function(b) if (b[7] <= 0) NaN else sum(dgg(y, exp(z(b)), exp(z2(b)), b[7])), c(b0, 0, 0, 0, 1))
fit("HALFNORM", function(b) sum(log(2) + dnorm(y, 0, exp(z(b)), log = TRUE)), b0)
fit("LOGNORM", function(b) sum(dlnorm(y, z(b), b[4], log = TRUE)), c(b0, 1))
y <- d$lin; b0 <- c(coef(lm(y ~ X - 1)))
fit("EWEIBULL", function(b) { w <- (y - z(b))/b[4]; sum(w - exp(w) - log(b[4])) }, c(b0, 1))
fit("EXTREMEV", function(b) { w <- (y - z(b))/b[4]; sum(-w - exp(-w) - log(b[4])) }, c(b0, 1))
fit("EGAMMA", function(b) { w <- (y - z(b))/b[4]; sum(b[5]*w - exp(w) - log(b[4]) - lgamma(b[5])) }, c(b0, 1, 1))
fit("EGG", function(b) { w <- (y - z(b))/b[4]; k <- b[5]; m <- 1/k^2
  sum(log(abs(k)) - log(b[4]) - lgamma(m) + m*log(m) + m*(k*w - exp(k*w))) }, c(b0, 1, 0.8))
fit("EDGE", function(b) { w <- (y - z(b))/b[4]
  br <- 1 + b[5]/6*(w^3 - 3*w) + b[6]/24*(w^4 - 6*w^2 + 3) + b[5]^2/72*(w^6 - 15*w^4 + 45*w^2 - 15)
  if (b[4] <= 0 || min(br) <= 0) NaN else sum(dnorm(w, log = TRUE) - log(b[4]) + log(br)) }, c(b0, 1, -0.2, 0))
y <- d$cnt
poi <- fit("POISSON", function(b) sum(dpois(y, exp(z(b)), log = TRUE)), c(0, 0, log(mean(y))))
fit("WPOISSON", function(b) sum(d$w*dpois(y, exp(z(b)), log = TRUE)), c(0, 0, log(mean(y))))
y <- d$prop
fit("BETA", function(b) if (min(z(b)) <= 0) NaN else sum(dbeta(y, z(b), b[4], log = TRUE)), c(0, 0, 3, 3))
fit("EBETA", function(b) sum(dbeta(y, exp(z(b)), b[4], log = TRUE)), c(0, 0, 1, 3))
fit("MBETA", function(b) { m <- plogis(z(b)); sum(dbeta(y, m*b[4], (1 - m)*b[4], log = TRUE)) }, c(0, 0, 0, 5))
# The stable density by Simpson's rule in t = x^4; that of A = 1 is Cauchy's.
dstab <- function(w, a) { x <- seq(0, 40^(1/(4*a)), length.out = 20001); h <- x[2]
  s <- c(1, rep(c(4, 2), length.out = 19999), 1)*h/3
  drop(cos(outer(w, x^4)) %*% (s*4*x^3*exp(-x^(4*a))))/pi }
stopifnot(max(abs(dstab(c(0, 1, 9), 1)*pi*(1 + c(0, 1, 9)^2) - 1)) < 1e-9)
y <- d$heavy
fit("STABLE", function(b) if (b[4] <= 0.84 || b[4] >= 2 || b[5] <= 0) NaN else
  sum(log(dstab((y - z(b))/b[5], b[4])) - log(b[5])), c(0.7, -0.4, 2, 1.5, 1))
# R's own fits of three of them: coefficients and log-likelihood.
library(survival)
s <- survreg(Surv(dur) ~ x1 + x2, d, dist = "weibull")
g <- glm(cnt ~ x1 + x2, poisson, d)
stopifnot(abs(s$loglik[2] - wei$l) < 1e-6, abs(1/s$scale - wei$b[4]) < 1e-5,
          abs(as.numeric(logLik(g)) - poi$l) < 1e-7, max(abs(coef(g)[c(2, 3, 1)] - poi$b)) < 1e-7)
