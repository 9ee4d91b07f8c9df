# Log density of symmetric stable laws for tests/nonlinear/nlmle_test.cpp:  Rscript stable.R > stable.inc
# (R 4.2.2). Not the cosine integral but the one of Nolan (1997) over an angle, split around its peak.
density <- function(a, w) {
  if (a == 1) return(1/(pi*(1 + w^2)))
  if (w == 0) return(gamma(1 + 1/a)/pi)
  e <- a/(a - 1)
  l <- function(th) e*(log(cos(th)) - log(sin(a*th))) + log(cos((a - 1)*th)) - log(cos(th)) + e*log(w)
  peak <- uniroot(l, c(1e-12, pi/2 - 1e-12), tol = 1e-14)$root
  d <- 10^seq(-8, 0, by = .5)
  br <- sort(unique(c(1e-14, pi/2 - 1e-14, peak - d, peak, peak + d)))
  br <- br[br > 0 & br < pi/2]
  s <- 0
  for (i in 2:length(br))
    s <- s + integrate(function(th) exp(l(th) - exp(l(th))), br[i - 1], br[i], rel.tol = 1e-11,
                       abs.tol = 0, stop.on.error = FALSE, subdivisions = 500)$value
  a/(pi*abs(a - 1)*w)*s
}
for (a in c(0.84, 1, 1.5, 1.99, 1.9999)) for (w in c(0, 0.5, 2, 8.99, 9.01, 16.1, 40))
  cat(sprintf("    {%.4f, %.2f, %.12f},\n", a, w, log(density(a, w))))
