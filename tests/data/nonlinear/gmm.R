# Reference values for GMM= of the NLINEAR command, computed with matrices in base R.
#
#   Rscript gmm.R > gmm.txt        (R 4.2.2)
#
# Data: ../nonlinear.dat, 40 rows. The first b minimises u'Pu (one equation) or, for two, the same
# with S^-1 of the two-stage residuals between; V is built once from it, and m'V^-1 m is minimised
# by Gauss-Newton steps until they are below 1e-12 of b. The covariance is
# (G'V^-1 G)^-1. A line is:
#   neq GMM= AUTCOV (-1: the rule)  J  coefficients ...  standard errors ...
d <- read.table("../nonlinear.dat")
names(d) <- c("y1", "y2", "x1", "x2", "z1", "z2", "z3", "w")
n <- nrow(d)
one <- list(Z = cbind(d$z1, d$z2, d$z3, d$x2, 1), b = c(A = 1, B = .2, C = .1),
  u = function(b) cbind(d$y1 - b[1]*exp(b[2]*d$x1) - b[3]*d$x2),
  D = function(b) list(cbind(exp(b[2]*d$x1), b[1]*d$x1*exp(b[2]*d$x1), d$x2)))
two <- list(Z = cbind(d$z1, d$z2, d$z3, 1), b = c(A = 1, B = .2, C = .1, D = .1),
  u = function(b) cbind(d$y1 - b[1]*exp(b[2]*d$x1), d$y2 - b[3] - b[4]*d$x1),
  D = function(b) list(cbind(exp(b[2]*d$x1), b[1]*d$x1*exp(b[2]*d$x1), 0, 0), cbind(0, 0, rep(1, n), d$x1)))
moments <- function(M, b) { u <- M$u(b)  # a row an observation: equation by equation, z within
  do.call(cbind, lapply(seq_len(ncol(u)), function(j) M$Z*u[, j])) }
jacobian <- function(M, b) do.call(rbind, lapply(M$D(b), function(D) crossprod(M$Z, D)))
minimum <- function(M, C, b) {
  q <- function(b) { m <- colSums(moments(M, b)); drop(m %*% C %*% m) }
  for (i in 1:500) {
    G <- jacobian(M, b); m <- colSums(moments(M, b)); s <- drop(solve(t(G) %*% C %*% G, t(G) %*% C %*% m))
    if (max(abs(s/b)) < 1e-12) break
    a <- 1; while (i < 100 && !isTRUE(q(b + a*s) <= q(b)*(1 + 1e-9)) && a > 1e-6) a <- a/2
    b <- b + a*s
  }
  stopifnot(max(abs(s/b)) < 1e-9)
  list(b = b, J = q(b), se = sqrt(diag(solve(t(jacobian(M, b)) %*% C %*% jacobian(M, b))))) }
window <- list(
  TRUNC = function(x) 1, BARTLETT = function(x) 1 - x, TUKEY = function(x) (1 + cos(pi*x))/2,
  PARZEN = function(x) if (x <= .5) 1 - 6*x^2 + 6*x^3 else 2*(1 - x)^3)
first <- function(M) {
  P <- solve(crossprod(M$Z)); k <- length(M$D(M$b))
  b <- minimum(M, kronecker(diag(k), P), M$b)$b
  if (k > 1) b <- minimum(M, kronecker(solve(crossprod(M$u(b))/n), P), b)$b
  b }
covariance <- function(M, b, name, L) {
  m <- moments(M, b); V <- crossprod(m)
  if (L > 0) for (j in 1:L) { G <- crossprod(m[(j + 1):n, ], m[1:(n - j), ])
    V <- V + window[[name]](j/(L + 1))*(G + t(G)) }
  V }
# A weight that is no V^-1 of these data; it is taken as one all the same, also by the covariance.
given <- function(order) outer(1:order, 1:order, function(i, j) 1/(1 + abs(i - j)))/10
show <- function(k, name, L, f)
  cat(k, name, L, format(c(f$J, f$b, f$se), digits = 10, width = 1), "\n")
rule <- floor(4*(n/100)^(2/9))
for (M in list(one, two)) {
  b <- first(M); k <- length(M$D(b))
  show(k, "HETCOV", -1, minimum(M, solve(covariance(M, b, "", 0)), b))
  for (name in names(window)) for (L in c(if (name == "TRUNC") 1 else 2, -1)) {
    V <- covariance(M, b, name, if (L < 0) rule else L)
    if (min(eigen(V)$values) > 0) show(k, name, L, minimum(M, solve(V), b)) else
      cat("#", k, name, L, "V is not positive definite\n")
  }
  show(k, "WM", -1, minimum(M, given(k*ncol(M$Z)), b))
}
