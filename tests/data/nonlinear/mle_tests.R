# LM statistics, Poisson R-squares and marginal effects of beta models, for tests/nonlinear/nlmle_test.cpp.
#   Rscript mle_tests.R        (R 4.2.2; the estimates are those of mle.txt)
d <- read.table("mle.dat"); names(d) <- c("dur", "cnt", "prop", "lin", "x1", "x2", "w", "heavy")
X <- cbind(d$x1, d$x2, 1)
ref <- strsplit(readLines("mle.txt"), " +"); est <- function(t) {
  v <- as.numeric(Filter(function(l) l[1] == t, ref)[[1]][-1]); v <- v[!is.na(v)]; v[2:(1 + (length(v) - 1)/2)] }
scores <- function(lf, b) sapply(seq_along(b), function(i) {
  h <- 1e-5; (lf(replace(b, i, b[i] + h)) - lf(replace(b, i, b[i] - h)))/(2*h) })
lm1 <- function(lf, b) { S <- scores(lf, b); g <- colSums(S); sum(g*solve(crossprod(S), g)) }
z <- function(b) drop(X %*% b[1:3]); y <- d$dur
dgg <- function(b) { s <- exp(z(b)); c <- b[4]; k <- b[5]
  log(c) - log(s) - lgamma(k) + (c*k - 1)*log(y/s) - (y/s)^c }
cat("WEIBULL GG", format(lm1(dgg, c(est("WEIBULL"), 1)), digits = 8), "\n")
cat("EXP WEIBULL", format(lm1(function(b) dgg(c(b, 1)), c(est("EXP"), 1)), digits = 8), "\n")
cat("EXP GAMMA", format(lm1(function(b) dgg(c(b[1:3], 1, b[4])), c(est("EXP"), 1)), digits = 8), "\n")
y <- d$lin; b <- est("EWEIBULL")
cat("EWEIBULL EGAMMA", format(lm1(function(b) { w <- (y - z(b))/b[4]; b[5]*w - exp(w) - log(b[4]) - lgamma(b[5]) }, c(b, 1)), digits = 8), "\n")
cat("EWEIBULL EGG", format(lm1(function(b) { w <- (y - z(b))/b[4]; k <- b[5]; m <- k^-2
  log(k) - log(b[4]) - lgamma(m) + m*log(m) + m*(k*w - exp(k*w)) }, c(b, 1)), digits = 8), "\n")
g <- glm(cnt ~ x1 + x2, poisson, d); m <- fitted(g); yb <- mean(d$cnt)
cat("R2p", 1 - sum((d$cnt - m)^2/m)/sum((d$cnt - yb)^2/yb), "R2d", 1 - g$deviance/g$null.deviance, "G2", g$deviance, "\n")
# Marginal effect of x1: at the means and averaged, standard errors from the numeric Hessian.
y <- d$prop
ll <- list(BETA = function(b) sum(dbeta(y, z(b), b[4], log = TRUE)),
           EBETA = function(b) sum(dbeta(y, exp(z(b)), b[4], log = TRUE)),
           MBETA = function(b) { m <- plogis(z(b)); sum(dbeta(y, m*b[4], (1 - m)*b[4], log = TRUE)) })
E <- list(BETA = function(b, Z) Z/(Z + b[4]), EBETA = function(b, Z) exp(Z)/(exp(Z) + b[4]), MBETA = function(b, Z) plogis(Z))
for (t in names(ll)) {
  b <- est(t); H <- optimHess(b, ll[[t]], control = list(ndeps = rep(1e-4, 4))); C <- solve(-H)
  slope <- function(b, X, j) { h <- 1e-5; X1 <- X0 <- X; X1[, j] <- X[, j] + h; X0[, j] <- X[, j] - h
    mean((E[[t]](b, drop(X1 %*% b[1:3])) - E[[t]](b, drop(X0 %*% b[1:3])))/(2*h)) }
  for (M in list(matrix(colMeans(X), 1), X)) {
    f <- function(b) slope(b, M, 1)
    gr <- sapply(1:4, function(i) { h <- 1e-4; (f(replace(b, i, b[i] + h)) - f(replace(b, i, b[i] - h)))/(2*h) })
    cat(t, nrow(M), format(c(f(b), sqrt(drop(gr %*% C %*% gr))), digits = 6), "\n")
  }
}
